// What differs between the machine and a view of it: an overlay mount, and a copy.

#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <fcntl.h>

#include "platform/formats/names.h"
#include "platform/offline/changes/changes.h"
#include "platform/offline/registry/hive_store.h"
#include "platform/offline/registry/registry.h"
#include "platform/registry.h"
#include "support/utf.h"
#include "tests/platform/host_folder.h"
#include "tests/platform/private_mount.h"

namespace platform::test {
namespace {

namespace fs = std::filesystem;
using machine::ChangeSet;
using machine::EntryState;
using machine::Side;

void Write(const std::string& path, const std::string& text) { std::ofstream(path) << text; }

void SetTime(const std::string& path, time_t time) {
  const timespec times[] = {{time, 0}, {time, 0}};
  EXPECT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

// A letter for what is there, and what differs of it.
std::string Describe(const machine::FileChange& change) {
  const auto letter = [](const std::optional<EntryState>& state) {
    return state ? std::string(1, "fdl"[static_cast<int>(state->kind)]) : std::string("-");
  };
  std::string text = letter(change.before) + letter(change.after);
  if (change.before && change.after) {
    const EntryState& was = *change.before;
    const EntryState& is = *change.after;
    const std::pair<bool, const char*> differences[] = {
        {was.attributes != is.attributes, " attributes"},
        {was.mode != is.mode, " mode"},
        {was.digest != is.digest, " bytes"},
        {was.target != is.target, " target"},
        {was.extended != is.extended, " extended"},
        {was.written != is.written, " time"}};
    for (const auto& [isDifferent, name] : differences) {
      text += isDifferent ? name : "";
    }
  }
  return text;
}

class Changes : public HostFolderTest {
 protected:
  // Everything below the test's folder that differs, a line each.
  std::string Describe(const ChangeSet& changes) {
    std::string text;
    for (const machine::FileChange& change : changes.files) {
      const std::string from = Below(change.movedFrom);
      text += Below(change.path) + (from.empty() ? "" : " from " + from) + ": " +
              test::Describe(change) + "\n";
    }
    for (const machine::KeyChange& change : changes.keys) {
      text += Utf8(change.hive) + " " + Utf8(change.path) + "\n";
    }
    return text;
  }

  // The machine, with what is done in it, is before; `operate` changes the view at this root.
  ChangeSet InOverlay(const std::function<void(const std::string&)>& operate) {
    const std::string scratch = Scratch();
    for (const char* name : {"/upper", "/work", "/view"}) {
      fs::create_directory(scratch + name);
    }
    const std::string options = "lowerdir=" + Root() + ",upperdir=" + scratch +
                                "/upper,workdir=" + scratch +
                                "/work,redirect_dir=off,metacopy=off,index=off";
    const std::string view = scratch + "/view";
    if (mount("overlay", view.c_str(), "overlay", 0, options.c_str()) != 0) {
      ADD_FAILURE() << "no overlay: " << errno;
      return {};
    }
    upper_ = scratch + "/upper";
    operate(view);
    EXPECT_EQ(umount2(view.c_str(), MNT_DETACH), 0);
    return Collect({.folder = Open(scratch + "/upper"),
                    .hidingMark = "trusted.overlay.opaque",
                    .completedAt = {}});
  }

  ChangeSet InCopy(const std::function<void(const std::string&)>& operate) {
    const std::string view = Scratch() + "/copy";
    EXPECT_EQ(std::system(("cp -a '" + Root() + "' '" + view + "'").c_str()), 0);
    Touch(view + "/mark");
    struct stat mark {};
    EXPECT_EQ(stat((view + "/mark").c_str(), &mark), 0);
    fs::remove(view + "/mark");
    operate(view);
    return Collect({.folder = Open(view), .completedAt = mark.st_ctim});
  }

  static const std::string& Root() { return posix::Machine::Get().Root(); }
  // The test's folder as a view has it.
  std::string In(const std::string& view) const { return view + Host().substr(Root().size()); }

  // Files have what their digests say, and nothing else has bytes.
  void ExpectBytes(const machine::FileChange& change, Side side) {
    const std::optional<EntryState>& state = side == Side::Before ? change.before : change.after;
    const bool isFile = state && state->kind == machine::EntryKind::File;
    files::File file;
    EntryState read;
    EXPECT_EQ(difference_->Open(change, side, &file), isFile ? kSuccess : kFileNotFound);
    if (isFile && posix::ReadDigest(file, &read) == kSuccess) {
      EXPECT_EQ(read.digest, state->digest) << Utf8(change.path);
    }
  }

  std::unique_ptr<posix::ViewDifference> difference_;
  std::string upper_;

 private:
  static std::shared_ptr<const posix::Descriptor> Open(const std::string& path) {
    return std::make_shared<posix::Descriptor>(
        open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  }

  ChangeSet Collect(posix::ViewFolder view) {
    ChangeSet changes;
    difference_ = std::make_unique<posix::ViewDifference>(std::move(view));
    EXPECT_EQ(difference_->Collect(&changes), kSuccess);
    return changes;
  }

  std::string Below(cvn::StringView path) const {
    const std::string text = Utf8(path);
    const std::size_t folder = Utf8(Folder()).size();
    return text.size() <= folder ? text : text.substr(folder + 1);
  }

  // Beside the machine.
  static std::string Scratch() {
    std::string scratch = Root() + "/../changes-XXXXXX";
    EXPECT_NE(mkdtemp(scratch.data()), nullptr);
    return fs::canonical(scratch);
  }
};

#define SKIP_WITHOUT_MOUNTS()                                    \
  if (geteuid() != 0 || !PrivateMount::IsPrivate()) {            \
    GTEST_SKIP() << "only root can mount, in a view of its own"; \
  }                                                              \
  static_assert(true)

TEST_F(Changes, TellWhatDiffersInFilesAlikeFromOverlayAndCopy) {
  SKIP_WITHOUT_MOUNTS();
  for (const char* name : {"gone.txt", "edited.txt", "touched.txt", "dated.txt", "hidden.txt",
                           "moved.txt", "twin1", "twin2", "becomes-folder", "\xFF_bytes"}) {
    Write(Host(name), name);
  }
  Write(Host("twin2"), "twin1");
  for (const char* folder : {"empty", "full/deep", "emptied", "package/lib", "untouched"}) {
    fs::create_directories(Host(folder));
  }
  for (const char* name : {"full/a", "full/deep/b", "emptied/old", "emptied/same", "package/x",
                           "package/lib/y", "untouched/z"}) {
    Write(Host(name), name);
  }
  fs::create_symlink("full", Host("link"));
  for (const auto& entry : fs::recursive_directory_iterator(Host())) {
    if (!entry.is_symlink()) {
      SetTime(entry.path(), 1'000'000'000);
    }
  }

  const auto operate = [this](const std::string& view) {
    const std::string in = In(view) + "/";
    fs::remove(in + "gone.txt");
    Write(in + "edited.txt", "EDITED.TXT");
    SetTime(in + "edited.txt", 1'000'000'000);
    EXPECT_EQ(chmod((in + "touched.txt").c_str(), 0600), 0);
    EXPECT_EQ(chmod((in + "touched.txt").c_str(), 0644), 0);
    SetTime(in + "dated.txt", 1'100'000'000);
    EXPECT_EQ(setxattr((in + "hidden.txt").c_str(), "user.DOSATTRIB", "0x22", 4, 0), 0);
    EXPECT_EQ(setxattr((in + "hidden.txt").c_str(), "user.stream", "s", 1, 0), 0);
    fs::rename(in + "moved.txt", in + "untouched/there.txt");
    fs::rename(in + "twin1", in + "twin3");
    fs::rename(in + "twin2", in + "twin4");
    fs::remove(in + "becomes-folder");
    fs::create_directory(in + "becomes-folder");
    Write(in + "becomes-folder/new", "new");
    Write(in + "\xFF_bytes", "other");
    fs::remove_all(in + "full");
    fs::remove_all(in + "emptied");
    fs::create_directory(in + "emptied");
    Write(in + "emptied/same", "emptied/same");
    SetTime(in + "emptied/same", 1'000'000'000);
    fs::create_directories(in + "programs/package/lib");
    fs::rename(in + "package/x", in + "programs/package/x");
    fs::rename(in + "package/lib/y", in + "programs/package/lib/y");
    fs::remove_all(in + "package");
    fs::remove(in + "link");
    fs::create_symlink("empty", in + "link");
    EXPECT_EQ(mkfifo((in + "pipe").c_str(), 0600), 0);
    for (const char* folder : {"emptied", "untouched", "."}) {
      SetTime(in + folder, 1'200'000'000);
    }
  };
  const std::string folder = Utf8(Folder());
  const std::string expected = folder +
                               ": dd time\n"
                               "becomes-folder: fd attributes mode bytes time\n"
                               "becomes-folder\\new: -f\n"
                               "dated.txt: ff time\n"
                               "edited.txt: ff bytes\n"
                               "emptied: dd time\n"
                               "emptied\\old: f-\n"
                               "full: d-\n"
                               "full\\a: f-\n"
                               "full\\deep: d-\n"
                               "full\\deep\\b: f-\n"
                               "gone.txt: f-\n"
                               "hidden.txt: ff attributes extended\n"
                               "link: ll target\n"
                               "programs: -d\n"
                               "programs\\package from package: dd time\n"
                               "programs\\package\\lib from package\\lib: dd time\n"
                               "programs\\package\\lib\\y from package\\lib\\y: ff\n"
                               "programs\\package\\x from package\\x: ff\n"
                               "twin1: f-\n"
                               "twin2: f-\n"
                               "twin3: -f\n"
                               "twin4: -f\n"
                               "untouched: dd time\n"
                               "untouched\\there.txt from moved.txt: ff\n"
                               "\xEF\xBF\xBD_bytes: ff bytes time\n";
  const ChangeSet changes = InOverlay(operate);
  EXPECT_EQ(Describe(changes), expected);
  for (const machine::FileChange& change : changes.files) {
    for (const Side side : {Side::Before, Side::After}) {
      ExpectBytes(change, side);
    }
  }
  EXPECT_EQ(Describe(InCopy(operate)), expected);
}

TEST_F(Changes, GiveFilesNothingThatNoStateHas) {
  Write(Host("file"), "");
  const posix::HostPath place = posix::PlaceOnHost(Host("file"));
  EntryState state;
  ASSERT_EQ(posix::ReadEntryState(place.At(), &state), kSuccess);
  for (const char* name : {"security.capability", "user.overlay.opaque", "user.DOSATTRIB"}) {
    state.extended = {{name, {std::byte{'y'}}}};
    EXPECT_EQ(posix::WriteEntryState(place.At(), state), kInvalidParameter) << name;
  }
}

TEST_F(Changes, TellHivesByTheirKeys) {
  SKIP_WITHOUT_MOUNTS();
  const auto operate = [](const std::string& view) {
    machine::KeyChange change;
    change.path = u"New";
    change.after.emplace();
    change.values.push_back({u"v", std::nullopt, machine::ValueState{1, {}}});
    const auto config = posix::PlaceOnHost(view + "/Windows/System32/config/SOFTWARE");
    posix::HiveStore reader(config);
    posix::HiveImage image(&reader.Pages());
    EXPECT_EQ(reader.Enter(false), kSuccess);
    reader.Leave();
    EXPECT_EQ(posix::ApplyKeyChanges(config, std::span(&change, 1), Side::After), kSuccess);
    // A reader sees what others have written, also where that is another file by now.
    posix::HiveImage::Cell key = 0;
    EXPECT_EQ(reader.Enter(false), kSuccess);
    EXPECT_EQ(image.Open(), kSuccess);
    EXPECT_EQ(image.FindSubKey(image.Root(), u"New", &key), kSuccess);
    reader.Leave();
    // One that is only read stays where it is.
    posix::HiveStore system(posix::PlaceOnHost(view + "/Windows/System32/config/SYSTEM"));
    EXPECT_EQ(system.Enter(false), kSuccess);
    // One that isn't whole any more is a file.
    fs::resize_file(view + "/Windows/System32/config/SAM", 100);
  };
  const std::string expected =
      "C:\\Windows\\System32\\config: dd time\n"
      "C:\\Windows\\System32\\config\\SAM: ff bytes time\n"
      "C:\\Windows\\System32\\config\\SOFTWARE New\n";
  for (const ChangeSet& changes : {InOverlay(operate), InCopy(operate)}) {
    EXPECT_EQ(Describe(changes), expected);
  }
  EXPECT_TRUE(fs::exists(upper_ + "/Windows/System32/config/SOFTWARE"));
  EXPECT_FALSE(fs::exists(upper_ + "/Windows/System32/config/SYSTEM"));
}

}  // namespace
}  // namespace platform::test
