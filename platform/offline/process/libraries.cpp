#include "platform/libraries.h"

#include <dlfcn.h>
#include <elf.h>
#include <link.h>

#include <cstring>
#include <string>
#include <string_view>

#include "platform/formats/names.h"
#include "platform/linux/error_map.h"
#include "platform/offline/process/program_file.h"
#include "platform/offline/volume/volume.h"
#include "platform/paths.h"

// Made by the linker: where the program's image begins in memory.
// NOLINTNEXTLINE(readability-identifier-naming)
extern "C" __attribute__((visibility("hidden"))) const char __ehdr_start;

namespace platform::libraries {
namespace {

using posix::Fail;

// The program's symbols are its own, and a library's missing symbols show at once.
constexpr int kMode = RTLD_NOW | RTLD_LOCAL;

bool HasFolder(cvn::StringView path) {
  return path.find_first_of(u"\\/:") != cvn::StringView::npos;
}

// A name or a path as Windows looks for it: ".dll" is added unless the name has a dot, and a dot at
// the very end only says that there is no extension.
cvn::String WithExtension(cvn::StringView path) {
  cvn::String whole(path);
  if (path.ends_with(u'.')) {
    whole.Truncate(path.size() - 1);
  } else if (paths::FindFileName(path).find(u'.') == cvn::StringView::npos) {
    whole.Append(u".dll");
  }
  return whole;
}

cvn::String BesideProgram(cvn::StringView name) {
  cvn::String path = paths::ModuleFileName();
  paths::RemoveFileSpec(&path);
  paths::AddBackslash(&path);
  path.Append(WithExtension(name));
  return path;
}

// Whether the file can be a library here: an ELF shared object for this kind of machine.
Code CheckImage(const posix::ProgramFile& file) {
  ElfW(Ehdr) header{};
  const std::string head = file.Head(sizeof(header));
  if (head.size() != sizeof(header)) {
    return kBadExeFormat;
  }
  std::memcpy(&header, head.data(), sizeof(header));
  const bool isLibrary = std::memcmp(header.e_ident, ELFMAG, SELFMAG) == 0 &&
                         header.e_ident[EI_CLASS] == ELFCLASS64 &&
                         header.e_ident[EI_DATA] == ELFDATA2LSB && header.e_type == ET_DYN &&
                         header.e_machine == EM_X86_64;
  return isLibrary ? kSuccess : kBadExeFormat;
}

// The loader tells why it refused an image only in words, which stay English since the program sets
// no locale.
Code CodeOfRefusal() {
  const char* words = dlerror();
  const std::string_view reason = words == nullptr ? std::string_view() : words;
  if (reason.find("undefined symbol") != std::string_view::npos) {
    return kProcNotFound;
  }
  const bool lacksLibrary = reason.find("cannot open shared object file") != std::string_view::npos;
  return lacksLibrary ? kModNotFound : kBadExeFormat;
}

Code FindFile(cvn::StringView path, std::string* file) {
  posix::HostPath host;
  if (posix::Resolve(HasFolder(path) ? WithExtension(path) : BesideProgram(path), &host) !=
      kSuccess) {
    return kModNotFound;
  }
  posix::ProgramFile image;
  Code code = host.IsFolder() ? Code(kAccessDenied) : posix::PathForHost(host, file);
  code = code == kSuccess ? image.Open(*file) : code;
  if (code != kSuccess) {
    return code == kAccessDenied || code == kBadExeFormat ? code : Code(kModNotFound);
  }
  // The loader wants the name: beside it lie the libraries that this one needs.
  *file = image.Path();
  return CheckImage(image);
}

struct Search {
  std::u16string name;
  std::string path;
};

int CompareModule(dl_phdr_info* module, std::size_t /*size*/, void* context) {
  auto* search = static_cast<Search*>(context);
  const std::string_view path = module->dlpi_name;
  const cvn::String name = posix::ToWide(path.substr(path.rfind('/') + 1));
  if (name.Empty() || posix::Folded(name) != search->name) {
    return 0;
  }
  search->path = path;
  return 1;
}

// The host's path of a library of that file name that is in the process; empty when none is.
std::string PathOfLoaded(cvn::StringView name) {
  Search search{posix::Folded(WithExtension(name)), std::string()};
  dl_iterate_phdr(CompareModule, &search);
  return search.path;
}

// The loader's record of a library; null on an address that is in none.
const link_map* RecordOf(const void* address) {
  Dl_info info{};
  void* record = nullptr;
  return dladdr1(address, &info, &record, RTLD_DL_LINKMAP) == 0 ? nullptr
                                                                : static_cast<link_map*>(record);
}

}  // namespace

void Library::Free() {
  if (IsLoaded()) {
    dlclose(handle_);
    handle_ = nullptr;
  }
}

// The loader's search is narrow as it is.
void NarrowSearch() {}

bool CanNarrowSearch() { return true; }

Code Load(cvn::StringView path, std::uint32_t /*flags*/, Library* library) {
  *library = Library();
  std::string file;
  Code code = FindFile(path, &file);
  if (code == kSuccess) {
    *library = Library(dlopen(file.c_str(), kMode));
    code = library->IsLoaded() ? kSuccess : CodeOfRefusal();
  }
  return posix::Report(code);
}

Code FindLoaded(cvn::StringView name, Library* library) {
  *library = Library();
  std::string path;
  if (!HasFolder(name)) {
    path = PathOfLoaded(name);
  } else if (FindFile(name, &path) != kSuccess) {
    path.clear();
  }
  if (!path.empty()) {
    *library = Library(dlopen(path.c_str(), kMode | RTLD_NOLOAD));
  }
  return library->IsLoaded() ? kSuccess : Fail(kModNotFound);
}

Address FindSymbol(const Library& library, const char* name) {
  void* address = dlsym(library.Handle(), name);
  link_map* own = nullptr;
  dlinfo(library.Handle(), RTLD_DI_LINKMAP, &own);
  // The loader looks through the libraries that this one needs as well.
  if (address == nullptr || RecordOf(address) != own) {
    SetLastError(kProcNotFound);
    return nullptr;
  }
  return reinterpret_cast<Address>(address);
}

cvn::String FileNameOf(const void* address) {
  const link_map* record = RecordOf(address);
  if (record == nullptr) {
    SetLastError(kModNotFound);
    return cvn::String();
  }
  // The program itself has no name among the libraries.
  return *record->l_name == '\0' ? paths::ModuleFileName() : posix::ToMachinePath(record->l_name);
}

const void* ProgramModule() { return &__ehdr_start; }

}  // namespace platform::libraries
