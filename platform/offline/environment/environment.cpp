#include "platform/offline/environment/environment.h"

#include <unistd.h>

#include <algorithm>
#include <climits>
#include <string>

#include "platform/environment.h"
#include "platform/formats/names.h"
#include "platform/linux/account.h"
#include "platform/linux/error_map.h"
#include "platform/linux/process_info.h"
#include "platform/offline/volume/volume.h"
#include "support/containers.h"
#include "support/format.h"
#include "support/utf.h"

namespace platform::environment {
namespace {

using posix::Fail;
using posix::Folded;
using posix::UpToZero;

struct Entry {
  cvn::String value;
  cvn::String setAs;  // the name as Set had it; empty when it was never set
};

using Table = cvn::Map<std::u16string, Entry>;  // by the folded name

struct Variable {
  cvn::StringView name;
  cvn::StringView value;
};

// What has the same value on every machine.
constexpr Variable kFixed[] = {
    {u"ALLUSERSPROFILE", u"C:\\ProgramData"},
    {u"CommonProgramFiles", u"C:\\Program Files\\Common Files"},
    {u"CommonProgramFiles(x86)", u"C:\\Program Files (x86)\\Common Files"},
    {u"CommonProgramW6432", u"C:\\Program Files\\Common Files"},
    {u"ComSpec", u"C:\\Windows\\system32\\cmd.exe"},
    {u"DriverData", u"C:\\Windows\\System32\\Drivers\\DriverData"},
    {u"HOMEDRIVE", u"C:"},
    {u"OS", u"Windows_NT"},
    {u"PATHEXT", u".COM;.EXE;.BAT;.CMD;.VBS;.VBE;.JS;.JSE;.WSF;.WSH;.MSC"},
    {u"PROCESSOR_ARCHITECTURE", u"AMD64"},
    {u"ProgramData", u"C:\\ProgramData"},
    {u"ProgramFiles", u"C:\\Program Files"},
    {u"ProgramFiles(x86)", u"C:\\Program Files (x86)"},
    {u"ProgramW6432", u"C:\\Program Files"},
    {u"PUBLIC", u"C:\\Users\\Public"},
    {u"SystemDrive", u"C:"},
    {u"SystemRoot", u"C:\\Windows"},
    {u"windir", u"C:\\Windows"},
};

cvn::String Joined(cvn::StringView left, cvn::StringView right) {
  cvn::String joined(left);
  joined.Append(right);
  return joined;
}

// The host's name in the form of NetBIOS, which is what Windows keeps in COMPUTERNAME.
std::u16string ComputerName() {
  constexpr std::size_t kLongest = 15;
  char name[HOST_NAME_MAX + 1] = {};
  gethostname(name, sizeof(name) - 1);
  const cvn::String wide = posix::ToWide(name);
  return Folded(wide.AsView().substr(0, std::min(wide.AsView().find(u'.'), kLongest)));
}

void AddForUser(Table* table) {
  const auto add = [table](cvn::StringView name, cvn::StringView value) {
    table->insert_or_assign(Folded(name), Entry{value, {}});
  };
  const std::u16string computer = ComputerName();
  const cvn::String profile = posix::UserProfile();
  const cvn::String temporary = posix::TemporaryFolder();
  add(u"COMPUTERNAME", computer);
  add(u"USERDOMAIN", computer);
  // The SYSTEM account goes by the computer's name.
  add(u"USERNAME", geteuid() == 0 ? Joined(computer, u"$") : posix::UserName());
  add(u"USERPROFILE", profile);
  add(u"HOMEPATH", profile.AsView().substr(2));
  add(u"APPDATA", Joined(profile, u"\\AppData\\Roaming"));
  add(u"LOCALAPPDATA", Joined(profile, u"\\AppData\\Local"));
  add(u"TEMP", temporary);
  add(u"TMP", temporary);
  add(u"NUMBER_OF_PROCESSORS", cvn::Format(u"%d", sysconf(_SC_NPROCESSORS_ONLN)));
}

Table MakeTable() {
  Table table;
  for (const Variable& variable : kFixed) {
    table.insert_or_assign(Folded(variable.name), Entry{variable.value, {}});
  }
  AddForUser(&table);
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    const cvn::String text = posix::ToWide(*entry);
    const std::size_t equals = text.AsView().find(u'=');
    if (equals != cvn::StringView::npos && equals != 0) {
      table.try_emplace(Folded(text.AsView().substr(0, equals)),
                        Entry{text.AsView().substr(equals + 1), {}});
    }
  }
  return table;
}

Table& Variables() {
  static Table table = MakeTable();
  return table;
}

constexpr cvn::StringView kPath = u"PATH";

// What children get, kept until a variable is set.
struct ChildBlock {
  std::vector<std::string> entries;
  std::vector<char*> pointers;
  bool isCurrent = false;
};

ChildBlock& ForChildren() {
  static ChildBlock block;
  return block;
}

void AddEntry(cvn::StringView name, cvn::StringView value, std::vector<std::string>* entries) {
  std::string& entry = entries->emplace_back();
  posix::AppendHostText(name, &entry);
  entry += '=';
  posix::AppendHostText(value, &entry);
}

// Whether the host's own value of a variable, given by its folded name, is what children get.
bool IsHosts(const std::u16string& folded) {
  const auto found = Variables().find(folded);
  return found == Variables().end() || found->second.setAs.Empty();
}

// Whether neither the host nor the script decides what a variable, given by its folded name, is for
// children.
bool IsReserved(const std::u16string& folded) {
  return folded == kPath || folded == u"TESSEL_MACHINE" || folded == u"TESSEL_RUN_VOLUME_PROGRAMS";
}

// The program's folder and those of the host's system. A folder with the separator in its path
// can't be named here.
std::string PathForChildren() {
  // /usr/local stays out: on many hosts more accounts than root's can write there.
  std::string folders = "/usr/sbin:/usr/bin:/sbin:/bin";
  std::string program;
  if (posix::ReadImageLink(static_cast<std::uint32_t>(getpid()), &program) != kSuccess) {
    return folders;
  }
  const std::string folder = program.substr(0, std::max<std::size_t>(program.rfind('/'), 1));
  return folder.find(':') == std::string::npos ? folder + ':' + folders : folders;
}

std::vector<std::string> EntriesForChildren() {
  std::vector<std::string> entries;
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    const std::string_view text(*entry);
    const std::u16string name = Folded(posix::ToWide(text.substr(0, text.find('='))));
    if (!IsReserved(name) && IsHosts(name)) {
      entries.emplace_back(text);
    }
  }
  for (const auto& [folded, variable] : Variables()) {
    if (!IsReserved(folded) && !IsHosts(folded)) {
      AddEntry(variable.setAs, variable.value, &entries);
    }
  }
  entries.push_back("PATH=" + PathForChildren());
  const posix::Machine& machine = posix::Machine::Get();
  if (machine.State() == kSuccess) {
    entries.push_back("TESSEL_MACHINE=" + (machine.Root().empty() ? "/" : machine.Root()));
  }
  return entries;
}

}  // namespace

std::optional<cvn::String> Get(cvn::StringView name) {
  const auto found = Variables().find(Folded(UpToZero(name)));
  if (found == Variables().end()) {
    SetLastError(kEnvVarNotFound);
    return std::nullopt;
  }
  return found->second.value;
}

Code Set(cvn::StringView name, cvn::StringView value) {
  name = UpToZero(name);
  if (name.empty() || name.find(u'=') != cvn::StringView::npos) {
    return Fail(kInvalidParameter);
  }
  Variables().insert_or_assign(Folded(name), Entry{UpToZero(value), name});
  ForChildren().isCurrent = false;
  return kSuccess;
}

std::optional<cvn::String> Expand(cvn::StringView text) {
  cvn::String expanded;
  text = UpToZero(text);
  while (!text.empty()) {
    const std::size_t open = std::min(text.find(u'%'), text.size());
    expanded.Append(text.substr(0, open));
    text.remove_prefix(open);
    const std::size_t close = text.find(u'%', 1);
    if (close == cvn::StringView::npos) {
      expanded.Append(text);
      break;
    }
    const auto found = Variables().find(Folded(text.substr(1, close - 1)));
    expanded.Append(found == Variables().end() ? text.substr(0, close + 1)
                                               : found->second.value.AsView());
    text.remove_prefix(close + 1);
  }
  return expanded;
}

}  // namespace platform::environment

namespace platform::posix {

cvn::String UserName() {
  const std::string name = HostAccount().name;
  return ToWide(name.substr(name.rfind('\\') + 1));
}

cvn::String UserProfile() {
  if (geteuid() == 0) {
    return u"C:\\Windows\\system32\\config\\systemprofile";
  }
  cvn::String profile = u"C:\\Users\\";
  profile.Append(UserName());
  return profile;
}

cvn::String TemporaryFolder() {
  if (geteuid() == 0) {
    return u"C:\\Windows\\Temp";
  }
  cvn::String folder = UserProfile();
  folder.Append(u"\\AppData\\Local\\Temp");
  return folder;
}

char* const* ChildEnvironment() {
  environment::ChildBlock& block = environment::ForChildren();
  if (!block.isCurrent) {
    block.entries = environment::EntriesForChildren();
    block.pointers.clear();
    for (std::string& entry : block.entries) {
      block.pointers.push_back(entry.data());
    }
    block.pointers.push_back(nullptr);
    block.isCurrent = true;
  }
  return block.pointers.data();
}

cvn::List<cvn::String> SearchedFolders() {
  const environment::Table& variables = environment::Variables();
  const auto found = variables.find(environment::kPath);
  cvn::List<cvn::String> folders;
  if (found == variables.end()) {
    return folders;
  }
  const char16_t separator = found->second.setAs.Empty() ? u':' : u';';
  for (cvn::StringView rest = found->second.value; !rest.empty();) {
    const std::size_t end = std::min(rest.find(separator), rest.size());
    if (end != 0) {
      folders.push_back(rest.substr(0, end));
    }
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  return folders;
}

}  // namespace platform::posix
