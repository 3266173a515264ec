// Commits: all of a change set or nothing, whatever comes in between.

#include <sys/stat.h>
#include <sys/xattr.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "platform/held_folder.h"
#include "platform/machine_commit.h"
#include "platform/offline/commit/journal.h"
#include "platform/offline/registry/registry.h"
#include "platform/private_folder.h"
#include "platform/registry.h"
#include "support/utf.h"
#include "tests/platform/call_points.h"
#include "tests/platform/host_folder.h"

namespace platform::test {
namespace {

namespace fs = std::filesystem;
using machine::ChangeSet;
using machine::CommitResult;
using machine::EntryState;
using machine::PendingCommit;
using posix::Machine;

constexpr const char* kStaging = "/$TesselCommit";

struct Seen {
  EntryState state;
  nlink_t links = 0;
  bool operator==(const Seen&) const = default;
};
using Snapshot = std::map<std::string, Seen>;

Snapshot LookAt(const std::string& root) {
  Snapshot snapshot;
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    const std::string path = entry.path().string();
    struct stat status {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0);
    Seen& seen = snapshot[path.substr(root.size())];
    EXPECT_EQ(posix::ReadEntryState({AT_FDCWD, path.c_str()}, &seen.state), kSuccess) << path;
    seen.links = S_ISDIR(status.st_mode) ? 0 : status.st_nlink;
  }
  return snapshot;
}

// Each has its time, so that one that was touched shows; of folders another one after.
void SetTimes(const std::string& root, bool isAfter) {
  std::vector<std::string> paths;
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    paths.push_back(entry.path().string());
  }
  for (auto path = paths.rbegin(); path != paths.rend(); ++path) {
    const auto own =
        static_cast<time_t>(std::hash<std::string>()(path->substr(root.size())) % 1000);
    const bool isOther = isAfter && fs::is_directory(fs::symlink_status(*path));
    const timespec times[] = {{0, UTIME_OMIT}, {1'500'000'000 + own + (isOther ? 1000 : 0), 100}};
    EXPECT_EQ(utimensat(AT_FDCWD, path->c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
  }
}

void Write(const std::string& path, const std::string& text) {
  fs::create_directories(fs::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << text;
}

void SetExtended(const std::string& path, const char* name, const std::string& value) {
  EXPECT_EQ(setxattr(path.c_str(), name, value.data(), value.size(), 0), 0) << path;
}

void Build(const std::string& root, bool isAfter) {
  const auto at = [&root](const char* name) { return root + "/" + name; };
  const std::string age = isAfter ? "new" : "old";
  Write(at("same.txt"), "same");
  Write(at("changed.txt"), age);
  Write(at("attributes.txt"), "same");
  SetExtended(at("attributes.txt"), "user.DOSATTRIB", isAfter ? "0x22" : "0x21");
  SetExtended(at("attributes.txt"), isAfter ? "user.new" : "user.old", age);
  Write(at("linked.txt"), age + " of both");
  fs::create_hard_link(at("linked.txt"), at("other name.txt"));
  Write(at(isAfter ? "2.txt" : "1.txt"), "swapped 1");
  Write(at(isAfter ? "1.txt" : "2.txt"), "swapped 2");
  Write(at(isAfter ? "CASE.TXT" : "case.txt"), "case");
  Write(at(isAfter ? "To/Sub/a.txt" : "From/Sub/a.txt"), "moved a");
  Write(at(isAfter ? "To/b.txt" : "From/b.txt"), "moved b");
  Write(at(isAfter ? "Kind 1" : "Kind 1/in it.txt"), age);
  Write(at(isAfter ? "Kind 2/in it.txt" : "Kind 2"), age);
  fs::create_symlink(age, at("link"));
  Write(at("Closed/changed.txt"), age);
  Write(at(isAfter ? "Closed/added.txt" : "Closed/removed.txt"), age);
  if (isAfter) {
    Write(at("New/Deep/file.txt"), std::string(100'000, 'n'));
    SetExtended(at("New/Deep/file.txt"), "user.stream", "bytes");
    fs::create_symlink("nowhere", at("New/link"));
    chmod(at("New/Deep").c_str(), 0500);
  } else {
    Write(at("Removed/Deep/Deeper/file.txt"), "gone");
    Write(at("Removed/file.txt"), "gone");
    chmod(at("Removed/Deep").c_str(), 0500);
    chmod(at("Kind 1").c_str(), 0555);
  }
  chmod(at("changed.txt").c_str(), isAfter ? 0444 : 0644);
  chmod(at("Closed").c_str(), 0555);
  SetTimes(root, isAfter);
}

// Tells which entries differ.
void ExpectSame(const Snapshot& left, const Snapshot& right, const std::string& what) {
  for (const auto& [path, seen] : left) {
    const auto found = right.find(path);
    EXPECT_TRUE(found != right.end() && found->second == seen)
        << what << ": " << path << (found == right.end() ? " is missing" : " differs");
    if (found != right.end()) {
      EXPECT_EQ(found->second.state.written, seen.state.written) << path;
      EXPECT_EQ(found->second.state.mode, seen.state.mode) << path;
      EXPECT_EQ(found->second.links, seen.links) << path;
    }
  }
  for (const auto& [path, seen] : right) {
    EXPECT_TRUE(left.contains(path)) << what << ": " << path << " is too much";
  }
}

class Commits : public HostFolderTest {
 protected:
  Commits() : before_(Host("before")), after_(Host("after")), tree_(Host("tree")) {
    Build(before_, false);
    Build(after_, true);
    seenBefore_ = LookAt(before_);
    seenAfter_ = LookAt(after_);
    Restore();
    FindChanges();
    FindKeyChanges();
    Restore();
  }

  ~Commits() override { Restore(); }

  void Restore() const {
    RemoveAll(tree_);
    Build(tree_, false);
    EXPECT_EQ(posix::ApplyKeyChanges(Hive(), changes_.keys, machine::Side::Before), kSuccess);
  }

  static constexpr cvn::StringView kHive = u"C:\\Windows\\System32\\config\\SOFTWARE";

  static posix::HostPath Hive() { return PlaceOf(kHive); }
  static posix::HostPath PlaceOf(const cvn::String& path) {
    posix::HostPath place;
    IgnoreError(posix::Resolve(path, &place));  // of a log that is missing this is enough
    return place;
  }
  static posix::HiveFiles FilesOf(cvn::StringView hive) {
    posix::HiveFiles found{.primary = PlaceOf(hive), .logs = {}};
    for (std::size_t i = 0; i < posix::kHiveLogs.size(); ++i) {
      found.logs[i] = PlaceOf(Joined(hive, cvn::Utf8ToWide(posix::kHiveLogs[i])));
    }
    return found;
  }

  // A new key in the place of another one, and a changed value.
  void FindKeyChanges() {
    using registry::Key;
    const Key root(registry::Root::LocalMachine);
    const auto add = [&root](cvn::StringView path, std::string_view data) {
      Key key;
      EXPECT_EQ(registry::CreateKey(root, path, false, registry::kSetValue, &key), kSuccess);
      EXPECT_EQ(registry::SetValue(key, u"value", registry::kTypeBinary, BytesOf(data)), kSuccess);
    };
    add(u"SOFTWARE\\Commits", "old");
    add(u"SOFTWARE\\Commits\\Old", "old");
    EXPECT_EQ(registry::Flush(), kSuccess);
    const cvn::String copy = Path(u"SOFTWARE");
    fs::copy_file(Hive().spelling, Host("SOFTWARE"));
    add(u"SOFTWARE\\Commits", "new");
    add(u"SOFTWARE\\Commits\\New\\Deep", std::string(5000, 'n'));
    EXPECT_EQ(registry::DeleteKey(root, u"SOFTWARE\\Commits\\Old"), kSuccess);
    EXPECT_EQ(registry::Flush(), kSuccess);
    EXPECT_EQ(posix::CompareHives(FilesOf(copy), FilesOf(kHive), kHive, &changes_.keys), kSuccess);
    EXPECT_GE(changes_.keys.size(), 4U);
  }

  bool HasKeysOf(machine::Side side) const {
    std::vector<std::size_t> others;
    EXPECT_EQ(posix::FindOtherKeys(Hive(), changes_.keys, side, &others), kSuccess);
    return others.empty();
  }

  // The changes of entries, and of those that moved.
  void FindChanges() {
    std::map<std::string, std::string> moved = {
        {"/1.txt", "/2.txt"},        {"/2.txt", "/1.txt"},
        {"/CASE.TXT", "/case.txt"},  {"/To", "/From"},
        {"/To/Sub", "/From/Sub"},    {"/To/Sub/a.txt", "/From/Sub/a.txt"},
        {"/To/b.txt", "/From/b.txt"}};
    std::set<std::string> paths;
    std::set<std::string> sources;
    for (const auto& [to, from] : moved) {
      sources.insert(from);
    }
    for (const Snapshot* snapshot : {&seenBefore_, &seenAfter_}) {
      for (const auto& [path, seen] : *snapshot) {
        paths.insert(path);
      }
    }
    const auto state = [](const Snapshot& snapshot, const std::string& path) {
      const auto found = snapshot.find(path);
      return found == snapshot.end() ? std::nullopt : std::optional(found->second.state);
    };
    for (const std::string& path : paths) {
      const std::string from = moved.contains(path) ? moved[path] : path;
      machine::FileChange change{.path = PathOf(path),
                                 .movedFrom = from == path ? u"" : PathOf(from),
                                 .before = state(seenBefore_, from),
                                 .after = state(seenAfter_, path)};
      if (change.before != change.after || from != path) {
        if (change.after || !sources.contains(path)) {
          changes_.files.push_back(std::move(change));
        }
      }
    }
    std::ranges::stable_sort(changes_.files, machine::ComesBefore, &machine::FileChange::path);
  }

  cvn::String PathOf(const std::string& path) const { return posix::ToMachinePath(tree_ + path); }

  class Bytes : public machine::ChangeBytes {
   public:
    explicit Bytes(const Commits& test) : test_(test) {}
    Code Open(const machine::FileChange& change, machine::Side side, files::File* file) override {
      const bool isBefore = side == machine::Side::Before;
      const cvn::String& path =
          isBefore && !change.movedFrom.Empty() ? change.movedFrom : change.path;
      std::string below = Utf8(path).substr(Utf8(test_.PathOf("")).size());
      std::ranges::replace(below, '\\', '/');
      const int opened =
          open(((isBefore ? test_.before_ : test_.after_) + below).c_str(), O_RDONLY | O_CLOEXEC);
      *file = files::File(opened);
      return opened < 0 ? kFileNotFound : kSuccess;
    }

   private:
    const Commits& test_;
  };

  CommitResult Apply(Code expected) {
    Bytes bytes(*this);
    CommitResult result;
    EXPECT_EQ(machine::Commit(changes_, bytes, {}, &result), expected) << Words(result);
    return result;
  }
  CommitResult Undo(Code expected) {
    Bytes bytes(*this);
    CommitResult result;
    EXPECT_EQ(
        machine::Commit(machine::Reversed(changes_), *machine::ReversedBytes(bytes), {}, &result),
        expected)
        << Words(result);
    return result;
  }

  static std::string Words(const CommitResult& result) {
    std::string words;
    for (const machine::Conflict& conflict : result.conflicts) {
      words += Utf8(conflict.place) + " " + Utf8(conflict.problem) + "\n";
    }
    return words;
  }

  // Whether the changes were made, and nothing else.
  bool CheckEnd(const std::string& what) const {
    EXPECT_FALSE(IsStaged()) << what;
    const bool isApplied = fs::exists(tree_ + "/New");
    EXPECT_TRUE(HasKeysOf(isApplied ? machine::Side::After : machine::Side::Before)) << what;
    ExpectSame(isApplied ? seenAfter_ : seenBefore_, LookAt(tree_), what);
    return isApplied;
  }

  bool IsStaged() const { return fs::exists(Machine::Get().Root() + kStaging); }

  std::string before_;
  std::string after_;
  std::string tree_;
  Snapshot seenBefore_;
  Snapshot seenAfter_;
  ChangeSet changes_;
};

TEST_F(Commits, GoThereAndBack) {
  struct stat before {};
  struct stat after {};
  stat(Machine::Get().Root().c_str(), &before);
  Apply(kSuccess);
  EXPECT_TRUE(CheckEnd("applied"));
  Undo(kSuccess);
  EXPECT_FALSE(CheckEnd("taken back"));
  stat(Machine::Get().Root().c_str(), &after);
  EXPECT_EQ(before.st_mtim.tv_nsec, after.st_mtim.tv_nsec);
  Undo(machine::kConflict);
}

TEST_F(Commits, AreWholeOrNothingWhereverTheyEnd) {
  const auto commit = [this] {
    Bytes bytes(*this);
    CommitResult result;
    IgnoreError(machine::Commit(changes_, bytes, {}, &result));
    return 0;
  };
  const auto restore = [this] {
    Restore();
    return 0;
  };
  // What it says is true: the tree is what it was, or what it became.
  const auto finish = [this] {
    PendingCommit found = PendingCommit::None;
    const Code code = machine::FinishPending(&found);
    const bool isApplied = fs::exists(tree_ + "/New");
    return code == kSuccess &&
                   (found == PendingCommit::None || isApplied == (found == PendingCommit::Finished))
               ? 0
               : 1;
  };
  if (RunTo(-1, AtCall::Kill, 0, [] { return 0; }) == Ended::Failed) {
    GTEST_SKIP() << "no process can be traced here";
  }
  int begun = 0;  // at the call of this number
  for (const AtCall what : {AtCall::Kill, AtCall::Fail}) {
    Ended ended = Ended::AtCall;
    for (int number = 0; ended != Ended::Whole && !HasFailure();
         number += what == AtCall::Kill ? 1 : 5) {
      ended = RunTo(number, what, ENOSPC, commit);
      EXPECT_EQ(RunTo(-1, AtCall::Kill, 0, finish), Ended::Whole);
      const bool isApplied = CheckEnd("call " + std::to_string(number));
      if (isApplied) {
        EXPECT_EQ(RunTo(-1, AtCall::Kill, 0, restore), Ended::Whole);
      }
      begun = begun == 0 && isApplied ? number : begun;
      EXPECT_TRUE(isApplied || begun == 0 || what == AtCall::Fail) << number;
    }
  }
  EXPECT_GT(begun, 40);
  Ended ended = Ended::AtCall;
  for (int number = 0; ended != Ended::Whole && !HasFailure(); number += 2) {
    EXPECT_EQ(RunTo(begun, AtCall::Kill, 0, commit), Ended::AtCall);
    ended = RunTo(number, AtCall::Kill, 0, finish);
    EXPECT_EQ(RunTo(-1, AtCall::Kill, 0, finish), Ended::Whole);
    EXPECT_TRUE(CheckEnd("call of the end " + std::to_string(number)));
    EXPECT_EQ(RunTo(-1, AtCall::Kill, 0, restore), Ended::Whole);
  }
}

TEST_F(Commits, ChangeNothingWhereTheMachineIsAnother) {
  struct Case {
    const char* name;
    std::function<void(const std::string& tree)> disturb;
    std::string words;
  };
  const Case kCases[] = {
      {"changed.txt", [](auto& at) { Write(at, "xyz"); }, "has other bytes"},
      {"changed.txt", [](auto& at) { Write(at, "longer"); }, "has other bytes"},
      {"changed.txt", [](auto& at) { chmod(at.c_str(), 0600); }, "has other permissions"},
      {"attributes.txt", [](auto& at) { SetExtended(at, "user.DOSATTRIB", "0x24"); },
       "has other attributes"},
      {"attributes.txt", [](auto& at) { SetExtended(at, "user.old", "x"); },
       "has other extended attributes"},
      {"From/b.txt", [](auto& at) { fs::remove(at); }, "is missing"},
      {"link", [](auto& at) { fs::remove(at), Touch(at); }, "is a file now"},
      {"link", [](auto& at) { fs::remove(at), fs::create_symlink("x", at); }, "leads elsewhere"},
      {"New", [](auto& at) { Touch(at); }, "is there already"},
      {"NEW", [](auto& at) { Touch(at); }, "is there already, spelled '"},
      {"Removed/Deep/more",
       [](auto& at) {
         chmod(fs::path(at).parent_path().c_str(), 0700), Touch(at),
             chmod(fs::path(at).parent_path().c_str(), 0500);
       },
       "holds 'more', which is none of the changes"},
      {"Closed", [](auto& at) { fs::rename(at, at + "2"), fs::create_symlink("Closed2", at); },
       "has a link among the folders on its way"},
  };
  for (const auto& [name, disturb, words] : kCases) {
    Restore();
    disturb(tree_ + "/" + name);
    const Snapshot seen = LookAt(tree_);
    EXPECT_NE(Words(Apply(machine::kConflict)).find(words), std::string::npos)
        << name << ": " << words;
    EXPECT_EQ(LookAt(tree_), seen) << words;
  }
  Restore();
  EXPECT_EQ(posix::ApplyKeyChanges(Hive(), changes_.keys, machine::Side::After), kSuccess);
  EXPECT_NE(Words(Apply(machine::kConflict)).find("SOFTWARE: Commits is another key"),
            std::string::npos);
  // What changes say that no comparison of two machines does.
  for (const char16_t* path :
       {u"C:\\..\\x", u"Z:\\x", u"C:\\a\\\\x", u"C:\\", u"C:\\a/x", u"C:\\$TESSELcommit\\x"}) {
    changes_.files = {{.path = path, .movedFrom = u"", .before = {}, .after = EntryState()}};
    Apply(kInvalidParameter);
  }
}

// What a hive refuses is known before anything has changed.
TEST_F(Commits, ChangeNothingWhereAHiveCantFollow) {
  const ChangeSet sound = changes_;
  const auto expectRefusal = [&](const std::string& words) {
    EXPECT_NE(Words(Apply(machine::kConflict)).find(words), std::string::npos) << words;
    EXPECT_FALSE(IsStaged()) << words;
    ExpectSame(seenBefore_, LookAt(tree_), words);
    changes_ = sound;
    EXPECT_TRUE(HasKeysOf(machine::Side::Before)) << words;
  };
  chmod(Hive().spelling.c_str(), 0444);
  expectRefusal("is read-only");
  chmod(Hive().spelling.c_str(), 0644);
  std::u16string deep = u"Commits";
  for (int level = 0; level < 511; ++level) {
    deep += u"\\d";
  }
  const std::u16string longName = u"Commits\\" + std::u16string(256, u'n');
  for (const auto& [path, words] :
       {std::pair(std::u16string(u"Commits\\Missing\\New"), "has no key that a new one can be in"),
        std::pair(deep, "can't have a key that deep"),
        std::pair(longName, "can't have a key that deep, or of that name")}) {
    changes_.keys.push_back({.hive = kHive,
                             .path = cvn::StringView(path),
                             .before = {},
                             .after = machine::KeyState(),
                             .values = {}});
    expectRefusal(words);
  }
  Apply(kSuccess);
  EXPECT_TRUE(CheckEnd("not refused"));
}

TEST_F(Commits, RefuseBytesThatAreOthers) {
  RemoveAll(after_ + "/changed.txt");  // which may be one that its owner may not write
  Write(after_ + "/changed.txt", "NEW");
  Apply(machine::kCorrupt);
  ExpectSame(seenBefore_, LookAt(tree_), "refused");
  EXPECT_FALSE(IsStaged());
}

// As an ordinary user, to whom the host denies what READONLY of a folder does not.
TEST_F(Commits, ServeTheMachinesOwner) {
  const std::string root = Machine::Get().Root();
  const auto own = [&root](uid_t owner) {
    EXPECT_EQ(lchown(root.c_str(), owner, owner), 0);
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
      EXPECT_EQ(lchown(entry.path().c_str(), owner, owner), 0);
    }
    chmod(fs::path(root).parent_path().c_str(), 0711);
  };
  if (!IsFullRoot()) {
    GTEST_SKIP() << "only root can be another user";
  }
  own(65534);
  EXPECT_EQ(AsOrdinaryUser([this] {
              Apply(kSuccess);
              ExpectSame(seenAfter_, LookAt(tree_), "applied");
              Undo(kSuccess);
              ExpectSame(seenBefore_, LookAt(tree_), "taken back");
              return HasFailure() ? 1 : 0;
            }),
            0);
  chown((tree_ + "/changed.txt").c_str(), 0, 0);
  EXPECT_EQ(AsOrdinaryUser([this] {
              const std::string words = Words(Apply(machine::kConflict));
              return words.find("belongs to another account") == std::string::npos ? 1 : 0;
            }),
            0);
  own(0);
}

TEST_F(Commits, TrustNoJournalButTheirOwn) {
  if (geteuid() == 0 && !IsFullRoot()) {
    GTEST_SKIP() << "root can't give its files to others here";
  }
  const std::string staging = Machine::Get().Root() + kStaging;
  const std::string outside = Host("outside");
  fs::create_directory(outside);
  const auto plant = [&staging](const std::string& bytes, const char* name) {
    fs::remove_all(staging);
    fs::create_directory(staging);
    chmod(staging.c_str(), 0700);
    Write(staging + "/" + name, bytes);
    Write(staging + "/1", "evil");
  };
  const auto journal = [](const std::string& path) {
    posix::CommitPlan plan;
    plan.arrivals.push_back({path, 1});
    const std::vector<std::byte> bytes = posix::WriteJournal(plan);
    return std::string(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  };
  const std::string below = tree_.substr(Machine::Get().Root().size() + 1);
  const std::string sound = journal(below + "/made");
  std::string later = sound;
  later[16] = 2;
  std::string damaged = sound;
  damaged.back() = static_cast<char>(damaged.back() ^ 1);
  fs::create_symlink(outside, tree_ + "/out");
  struct Case {
    std::string bytes;
    std::function<void()> change;
    Code code;
  };
  const auto nothing = [] {};
  const Case kCases[] = {
      {sound, [&] { chmod(staging.c_str(), 0770), chown(staging.c_str(), 0, 65534); },
       files::kNotPrivate},
      {sound, [&] { chmod(staging.c_str(), 0777); }, files::kNotPrivate},
      {sound,
       [&] { fs::rename(staging, outside + "/s"), fs::create_symlink(outside + "/s", staging); },
       files::kNotPrivate},
      {damaged, nothing, machine::kCorrupt},
      {sound.substr(0, sound.size() - 1), nothing, machine::kCorrupt},
      {"", nothing, machine::kCorrupt},
      {later, nothing, machine::kLaterJournal},
      {journal("../made"), nothing, machine::kCorrupt},
      {journal("/made"), nothing, machine::kCorrupt},
      {journal(below + "/out/made"), nothing, kCantResolveFilename},
      {sound, [&] { chown(staging.c_str(), 65534, 65534); }, files::kForeignPlace},
  };
  for (const auto& [bytes, change, code] : kCases) {
    if (!IsFullRoot() && code == files::kForeignPlace) {
      continue;
    }
    plant(bytes, "journal");
    change();
    PendingCommit found = PendingCommit::None;
    EXPECT_EQ(machine::FinishPending(&found), code);
    EXPECT_EQ(found, PendingCommit::None);
    EXPECT_TRUE(machine::IsCommitPending());
    EXPECT_FALSE(fs::exists(outside + "/made") || fs::exists(tree_ + "/made")) << code;
    fs::remove_all(staging);
    fs::remove_all(outside + "/s");
  }
  for (const auto& [name, expected] : {std::pair("journal", PendingCommit::Finished),
                                       {"draft", PendingCommit::Dropped},
                                       {"done", PendingCommit::Finished}}) {
    plant(sound, name);
    PendingCommit found = PendingCommit::None;
    EXPECT_EQ(machine::FinishPending(&found), kSuccess);
    EXPECT_EQ(found, expected);
    EXPECT_EQ(fs::remove(tree_ + "/made"), std::string_view(name) == "journal");
    EXPECT_FALSE(machine::IsCommitPending());
  }
}

}  // namespace
}  // namespace platform::test
