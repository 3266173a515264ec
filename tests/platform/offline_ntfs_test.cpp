// What NTFS keeps of files beyond their content, on a volume as ntfs-3g mounts it: security
// descriptors and who inherits them, attributes, named streams, times of creation, hard links.

#include <sys/resource.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstdio>
#include <initializer_list>
#include <optional>
#include <sstream>
#include <vector>

#include "platform/file_search.h"
#include "platform/formats/little_endian.h"
#include "platform/formats/security_descriptor.h"
#include "platform/machine.h"
#include "platform/private_file.h"
#include "support/utf.h"
#include "tests/platform/host_folder.h"
#include "tests/platform/listed_copies.h"
#include "tests/platform/ntfs_mount.h"

namespace platform::test {
namespace {

using namespace steps;  // NOLINT(google-build-using-namespace): the columns of the tables
using security::NewObject;

// --- Descriptors as text: an ACE is "type flags mask trustee", in hexadecimal

struct Trustee {
  const char* name;
  std::string sid;
};

std::string Sid(int authority, std::initializer_list<std::uint32_t> numbers) {
  std::string sid = {1, static_cast<char>(numbers.size()), 0, 0, 0, 0,
                     0, static_cast<char>(authority)};
  for (const std::uint32_t number : numbers) {
    sid.append(reinterpret_cast<const char*>(&number), sizeof(number));
  }
  return sid;
}

const Trustee kTrustees[] = {
    {"World", Sid(1, {0})},
    {"CreatorOwner", Sid(3, {0})},
    {"CreatorGroup", Sid(3, {1})},
    {"System", Sid(5, {18})},
    {"Administrators", Sid(5, {32, 544})},
    {"Users", Sid(5, {32, 545})},
    {"Installer", Sid(5, {80, 956008885, 3418522649, 1831038044, 1853292631, 2271478464})}};

const std::string& SidOf(std::string_view name) {
  return std::ranges::find(kTrustees, name, &Trustee::name)->sid;
}

template <typename T>
void Append(T value, std::string* bytes) {
  bytes->append(reinterpret_cast<const char*>(&value), sizeof(value));
}

std::string AclOf(const std::string& text) {
  std::string aces;
  std::istringstream stream(text);
  stream >> std::hex;
  std::uint16_t count = 0;
  unsigned type = 0;
  unsigned flags = 0;
  std::uint32_t mask = 0;
  for (std::string trustee; stream >> type >> flags >> mask >> trustee; ++count) {
    const std::string& sid = SidOf(trustee);
    aces += {static_cast<char>(type), static_cast<char>(flags)};
    Append(static_cast<std::uint16_t>(8 + sid.size()), &aces);
    Append(mask, &aces);
    aces += sid;
  }
  std::string acl = {2, 0};
  Append(static_cast<std::uint16_t>(8 + aces.size()), &acl);
  Append(std::uint32_t{count}, &acl);
  return acl + aces;
}

// With the owner and group in front, where the code has them behind.
std::string Descriptor(std::string_view owner, unsigned control, const std::string& dacl,
                       const std::string& sacl = {}) {
  std::string parts = SidOf(owner) + SidOf("Users");
  std::string bytes = {1, 0};
  Append(static_cast<std::uint16_t>(control), &bytes);
  Append(std::uint32_t{20}, &bytes);
  Append(static_cast<std::uint32_t>(20 + SidOf(owner).size()), &bytes);
  Append(static_cast<std::uint32_t>(sacl.empty() ? 0 : 20 + parts.size()), &bytes);
  parts += sacl.empty() ? "" : AclOf(sacl);
  Append(static_cast<std::uint32_t>(20 + parts.size()), &bytes);
  return bytes + parts + AclOf(dacl);
}

std::string NameOfSid(std::string_view bytes) {
  for (const auto& [name, sid] : kTrustees) {
    if (bytes.starts_with(sid)) {
      return name;
    }
  }
  return "unknown";
}

std::string TextOfAcl(std::string_view bytes) {
  const auto data = std::as_bytes(std::span(bytes));
  std::string text;
  std::size_t at = 8;
  for (int i = 0; i < NumberAt<std::uint16_t>(data, 4); ++i) {
    char ace[32] = {};
    std::snprintf(ace, sizeof(ace), "%s%x %x %x ", i == 0 ? "" : " ",
                  NumberAt<std::uint8_t>(data, at), NumberAt<std::uint8_t>(data, at + 1),
                  NumberAt<std::uint32_t>(data, at + 4));
    text += ace + NameOfSid(bytes.substr(at + 8));
    at += NumberAt<std::uint16_t>(data, at + 2);
  }
  return text;
}

// "control owner | DACL", and the SACL in front of that where there is one.
std::string TextOf(std::string_view bytes) {
  const auto data = std::as_bytes(std::span(bytes));
  if (bytes.empty()) {
    return "none";
  }
  std::ostringstream text;
  text << std::hex << NumberAt<std::uint16_t>(data, 2) << ' '
       << NameOfSid(bytes.substr(NumberAt<std::uint32_t>(data, 4))) << " | ";
  for (const std::size_t field : {12, 16}) {
    if (const auto offset = NumberAt<std::uint32_t>(data, field); offset != 0) {
      text << (field == 12 ? "S: " : "") << TextOfAcl(bytes.substr(offset))
           << (field == 12 ? " | " : "");
    }
  }
  return text.str();
}

std::string InheritedText(const std::string& parent, NewObject kind) {
  const std::string made = Descriptor("Administrators", 0x8004, "0 3 1f01ff World");
  const std::vector<std::byte> bytes =
      security::Inherit(std::as_bytes(std::span(parent)), std::as_bytes(std::span(made)), kind);
  return TextOf({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

constexpr const char* kDefault =
    "8004 Administrators | 0 0 1f01ff Administrators 0 0 1f01ff System";

TEST(SecurityDescriptors, PassOnByTheRulesOfInheritance) {
  constexpr struct {
    const char* dacl;
    const char* ofFile;  // kDefault where there is none
    const char* ofFolder;
  } kCases[] = {
      {"0 0 1f01ff World", nullptr, nullptr},
      {"0 3 1f01ff System", "0 10 1f01ff System", "0 13 1f01ff System"},
      {"0 1 1200a9 Users", "0 10 1200a9 Users", "0 19 1200a9 Users"},
      {"0 2 1200a9 Users", nullptr, "0 12 1200a9 Users"},
      {"0 7 1200a9 Users", "0 10 1200a9 Users", "0 10 1200a9 Users"},
      {"0 5 1200a9 Users", "0 10 1200a9 Users", nullptr},
      {"0 6 1200a9 Users", nullptr, "0 10 1200a9 Users"},
      {"0 13 1200a9 Users", "0 10 1200a9 Users", "0 13 1200a9 Users"},
      {"0 b e0010000 Users", "0 10 1301bf Users", "0 10 1301bf Users 0 1b e0010000 Users"},
      {"0 3 10000000 System", "0 10 1f01ff System", "0 10 1f01ff System 0 1b 10000000 System"},
      {"0 b 10000000 CreatorOwner", "0 10 1f01ff Administrators",
       "0 10 1f01ff Administrators 0 1b 10000000 CreatorOwner"},
      {"0 3 1200a9 CreatorGroup", "0 10 1200a9 Users",
       "0 10 1200a9 Users 0 1b 1200a9 CreatorGroup"},
      {"0 2 10000000 Installer", nullptr, "0 10 1f01ff Installer 0 1a 10000000 Installer"},
      {"1 3 2 World 0 0 1f01ff Users 0 3 1200a9 Users", "1 10 2 World 0 10 1200a9 Users",
       "1 13 2 World 0 13 1200a9 Users"},
      {"5 3 1f01ff World 2 3 1f01ff World", nullptr, nullptr},
  };
  for (const auto& [dacl, ofFile, ofFolder] : kCases) {
    // A folder that takes nothing from above passes on all the same, and not that it takes nothing.
    const std::string parent = Descriptor("Installer", 0x9404, dacl);
    for (const auto& [kind, expected] :
         {std::pair{NewObject::File, ofFile}, std::pair{NewObject::Folder, ofFolder}}) {
      EXPECT_EQ(InheritedText(parent, kind),
                expected == nullptr ? kDefault : std::string("8404 Administrators | ") + expected)
          << dacl;
    }
  }
  const std::string audited =
      Descriptor("System", 0x8814, "0 3 1f01ff System", "2 c3 10000000 World 11 3 1 Users");
  EXPECT_EQ(InheritedText(audited, NewObject::File),
            "8c14 Administrators | S: 2 d0 1f01ff World 11 10 1 Users | 0 10 1f01ff System");
  EXPECT_EQ(InheritedText(audited, NewObject::Folder),
            "8c14 Administrators | S: 2 d0 1f01ff World 2 db 10000000 World 11 13 1 Users | "
            "0 13 1f01ff System");
}

TEST(SecurityDescriptors, PassOnNothingWhenDamaged) {
  const std::string sound = Descriptor("System", 0x8404, "0 3 1200a9 Users 0 3 1f01ff System");
  for (std::size_t size = 0; size < sound.size(); ++size) {
    EXPECT_EQ(InheritedText(sound.substr(0, size), NewObject::File), kDefault) << size;
  }
  const auto with = [&](std::size_t at, std::string_view bytes) {
    return std::string(sound).replace(at, bytes.size(), bytes);
  };
  const std::size_t acl = sound.size() - AclOf("0 3 1200a9 Users 0 3 1f01ff System").size();
  const std::string damaged[] = {
      with(0, "\2"),                       // another revision
      with(2, {"\4\4", 2}),                // not self-relative
      with(2, {"\0\x84", 2}),              // without a DACL
      with(16, {"\0\0\0\0", 4}),           // one that is null
      with(16, "\xFF\xFF\xFF\xFF"),        // outside
      with(16, {"\4\0\0\0", 4}),           // in the header
      with(acl + 2, {"\7\0", 2}),          // shorter than its header
      with(acl + 4, "\xFF\xFF"),           // with more ACEs than it has
      with(acl + 8 + 2, {"\3\0", 2}),      // an ACE that is shorter than its header
      with(acl + 8 + 2, {"\xC\0", 2}),     // one that ends in its SID
      with(acl + 8 + 8 + 1, {"\x10", 1}),  // a SID of more than 15 numbers
      with(acl + 8 + 8, {"\2", 1}),        // of another revision
  };
  for (const std::string& one : damaged) {
    EXPECT_EQ(InheritedText(one, NewObject::Folder), kDefault) << &one - damaged;
  }
  const std::span<const std::byte> parent = std::as_bytes(std::span(sound));
  EXPECT_TRUE(security::Inherit(parent, parent.first(20), NewObject::File).empty());
  EXPECT_TRUE(security::ForOwnerAlone(parent.first(20)).empty());
  // As many as fit into a list give twice as many to a folder, which don't.
  std::string most;
  for (int i = 0; i < 3000; ++i) {
    most += "0 3 10000000 System ";
  }
  const std::string full = Descriptor("System", 0x8404, most);
  EXPECT_EQ(InheritedText(full, NewObject::Folder), "none");
  EXPECT_NE(InheritedText(full, NewObject::File), "none");
}

// --- Volumes

// The tests run with the driver's defaults, and once more with owners and permissions kept.
class Ntfs : public HostFolderTest, public testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override {
    volume_.emplace(Host("ntfs"), GetParam());
    if (!volume_->IsMounted()) {
      GTEST_SKIP() << "volumes with NTFS can't be made and mounted here";
    }
  }
  void TearDown() override { volume_.reset(); }

  // Of a file or folder on the volume. All of it at once: the driver tells no size before.
  std::string Get(const std::string& name, const char* attribute) const {
    std::string value(65536, '\0');
    const ssize_t size =
        getxattr(Host("ntfs/" + name).c_str(), attribute, value.data(), value.size());
    value.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
    return value;
  }
  void Set(const std::string& name, const char* attribute, const std::string& value) const {
    ASSERT_EQ(setxattr(Host("ntfs/" + name).c_str(), attribute, value.data(), value.size(), 0), 0)
        << name << ' ' << attribute << ' ' << errno;
  }
  std::string SecurityOf(const std::string& name) const {
    return TextOf(Get(name, "system.ntfs_acl"));
  }
  std::string WordOf(const std::string& name) const {
    char text[16] = {};
    const std::string word = Get(name, "system.ntfs_attrib_be");
    std::snprintf(text, sizeof(text), "%x",
                  word.empty() ? 0U : static_cast<unsigned char>(word[3]));
    return text;
  }

  std::optional<NtfsMount> volume_;  // of what its folder has
};

INSTANTIATE_TEST_SUITE_P(Mounted, Ntfs, testing::Values("rw", "permissions"), [](const auto& test) {
  return std::string_view(test.param) == "rw" ? "ByDefault" : "WithPermissions";
});

constexpr const char* kOwn = "8404 Installer | 0 0 1f01ff Installer 0 0 1200a9 Administrators";

TEST_P(Ntfs, NewFilesAndFoldersInherit) {
  Run(std::initializer_list<Step>{{Make, u"ntfs\\folder"}, {Create, u"ntfs\\own"}});
  Set("folder", "system.ntfs_acl",
      Descriptor("System", 0x9404,
                 "0 3 10000000 System 0 b 80000000 CreatorOwner 0 1 1200a9 Users"));
  Set("own", "system.ntfs_acl",
      Descriptor("Installer", 0x8404, "0 0 1f01ff Installer 0 0 1200a9 Administrators"));
  ASSERT_EQ(SecurityOf("own"), kOwn);
  Run(std::initializer_list<Step>{
      {Create, u"ntfs\\folder\\created"},
      {Ensure, u"ntfs\\folder\\ensured"},
      {Empty, u"ntfs\\folder\\emptied"},
      {CopyNew, u"ntfs\\own", u"ntfs\\folder\\copied"},
      {Copy, u"ntfs\\own", u"ntfs\\folder\\copied over nothing"},
      {Make, u"ntfs\\folder\\sub"},
      {Make, u"ntfs\\folder\\sub\\deep"},
      {Create, u"ntfs\\folder\\sub\\deep\\file"},
      {Copy, u"ntfs\\own", u"ntfs\\folder\\ensured"},
      {Empty, u"ntfs\\own"},
      {Move<0>, u"ntfs\\own", u"ntfs\\folder\\moved"},
      {TakePlace, u"ntfs\\folder\\emptied", u"ntfs\\folder\\fresh"},
  });
  const std::string file =
      "8404 Administrators | 0 10 1f01ff System 0 10 120089 Administrators 0 10 1200a9 Users";
  const std::string folder =
      "8404 Administrators | 0 10 1f01ff System 0 1b 10000000 System 0 10 120089 Administrators "
      "0 1b 80000000 CreatorOwner 0 19 1200a9 Users";
  for (const auto& [name, expected] : {std::pair<const char*, std::string>{"created", file},
                                       {"ensured", file},
                                       {"copied", file},
                                       {"copied over nothing", file},
                                       {"fresh", file},
                                       {"sub", folder},
                                       {"sub/deep", folder},
                                       {"sub/deep/file", file},
                                       {"moved", kOwn}}) {
    EXPECT_EQ(SecurityOf(std::string("folder/") + name), expected) << name;
  }
  // What is for its owner alone doesn't.
  files::File secret;
  ASSERT_EQ(files::CreatePrivate(Path(u"ntfs\\folder\\secret"), &secret), kSuccess);
  EXPECT_EQ(SecurityOf("folder/secret"), "9004 Administrators | 0 0 1f01ff Administrators");
  // A folder that has the number of one that is gone passes on what it has itself.
  Run(std::initializer_list<Step>{{Delete, u"ntfs\\folder\\sub\\deep\\file"},
                                  {Remove, u"ntfs\\folder\\sub\\deep"},
                                  {Make, u"ntfs\\again"},
                                  {Create, u"ntfs\\again\\file"}});
  EXPECT_NE(SecurityOf("again/file"), file);
}

TEST_P(Ntfs, NewVersionsKeepWhatTheFileHas) {
  const std::string born("\0\0\0\0\0\0\xD0\1", 8);
  Run(std::initializer_list<Step>{{Create, u"ntfs\\file"}, {Create, u"ntfs\\new"}});
  Set("file", "system.ntfs_acl",
      Descriptor("Installer", 0x8404, "0 0 1f01ff Installer 0 0 1200a9 Administrators"));
  Set("file", "system.ntfs_crtime", born);
  Set("file", "user.Zone.Identifier", "[ZoneTransfer]");
  ASSERT_TRUE(volume_->SetShortName("file", "FILE~1"));
  Set("file", "system.ntfs_attrib_be", {0, 0, 0, 0x20});
  ASSERT_EQ(files::SetAttributes(Path(u"ntfs\\file"), files::kHidden | files::kReadOnly), kSuccess);
  EXPECT_EQ(SecurityOf("file"), kOwn);
  Run(std::initializer_list<Step>{{Write, u"ntfs\\file", {}, kAccessDenied},
                                  {TakePlace, u"ntfs\\new", u"ntfs\\file", kAccessDenied},
                                  {Mark<files::kHidden>, u"ntfs\\file"},
                                  {Write, u"ntfs\\file"},
                                  {TakePlace, u"ntfs\\new", u"ntfs\\file"}});
  EXPECT_EQ(SecurityOf("file"), kOwn);
  EXPECT_EQ(Get("file", "system.ntfs_crtime"), born);
  EXPECT_EQ(Get("file", "user.Zone.Identifier"), "[ZoneTransfer]");
  EXPECT_EQ(Get("file", "system.ntfs_dos_name"), "FILE~1");
  EXPECT_EQ(WordOf("file"), "22");  // what is written needs archiving
}

// The driver makes a descriptor of the permissions that it is given; these have no right to write.
TEST_P(Ntfs, StatesAreWrittenWithTheirDescriptors) {
  const std::string closed =
      Descriptor("Administrators", 0x8004, "0 0 1f01b9 Administrators 0 0 1200a9 World");
  Run(std::initializer_list<Step>{{Create, u"ntfs\\file"}});
  for (const bool isSeen : {true, false}) {
    Set("file", "user.old", "stream");
    Set("file", "system.ntfs_acl", closed);
    const std::string place = Host("ntfs/file");
    machine::EntryState state;
    ASSERT_EQ(posix::ReadEntryStatus({AT_FDCWD, place.c_str()}, &state), kSuccess);
    std::erase_if(state.extended, [isSeen](const auto& one) {
      return one.first == "user.old" || (!isSeen && one.first == "system.ntfs_acl");
    });
    EXPECT_EQ(posix::WriteEntryState({AT_FDCWD, place.c_str()}, state), kSuccess);
    EXPECT_EQ(SecurityOf("file"), TextOf(closed)) << isSeen;
    EXPECT_EQ(Get("file", "user.old"), "");
  }
}

TEST_P(Ntfs, CopiesTakeStreamsAlong) {
  const std::string large(65536, 's');
  const std::string born("\0\0\0\0\0\0\xD0\1", 8);
  Run(std::initializer_list<Step>{{Create, u"ntfs\\file"}, {Create, u"ntfs\\old"}});
  Set("file", "user.Zone.Identifier", "[ZoneTransfer]");
  Set("file", "user.large", large);
  Set("old", "user.old", "old");
  Set("old", "system.ntfs_crtime", born);
  ASSERT_TRUE(volume_->SetShortName("old", "OLD~1"));
  Set("old", "system.ntfs_acl",
      Descriptor("Installer", 0x8404, "0 0 1f01ff Installer 0 0 1200a9 Administrators"));
  Run(std::initializer_list<Step>{
      {CopyNew, u"ntfs\\file", u"ntfs\\copy"},
      {Copy, u"ntfs\\file", u"ntfs\\old"},
      {CopyNew, u"ntfs\\file", u"outside"},
      {Move<files::kMoveCopyAllowed>, u"ntfs\\file", u"moved outside"}});
  for (const char* copy : {"copy", "old"}) {
    EXPECT_EQ(Get(copy, "user.Zone.Identifier"), "[ZoneTransfer]") << copy;
    EXPECT_TRUE(Get(copy, "user.large") == large) << copy;
  }
  // As Windows writes over a file: its own streams go, and what else it has stays.
  EXPECT_EQ(Get("old", "user.old"), "");
  EXPECT_EQ(Get("old", "system.ntfs_crtime"), born);
  EXPECT_EQ(Get("old", "system.ntfs_dos_name"), "OLD~1");
  EXPECT_EQ(SecurityOf("old"), kOwn);
}

// Most files of System32 have another name in the component store.
TEST_P(Ntfs, AllNamesOfAFileHaveWhatIsWritten) {
  Run(std::initializer_list<Step>{
      {Create, u"ntfs\\file"}, {Create, u"ntfs\\other"}, {Link, u"ntfs\\file", u"ntfs\\name"}});
  Set("file", "user.old", "old");
  Set("other", "user.new", "new");
  Set("file", "system.ntfs_acl",
      Descriptor("Installer", 0x8404, "0 0 1f01ff Installer 0 0 1200a9 Administrators"));
  Run(std::initializer_list<Step>{{Save, u"ntfs\\file"}, {Has, u"ntfs\\name", u"saved"}});
  EXPECT_EQ(Get("name", "user.old"), "old");
  Run(std::initializer_list<Step>{{Copy, u"ntfs\\other", u"ntfs\\name"},
                                  {Has, u"ntfs\\file", u"new"}});
  EXPECT_EQ(Get("file", "user.old") + Get("file", "user.new"), "new");
  EXPECT_EQ(SecurityOf("file"), kOwn);
  // A short name is none of them, though the driver counts it.
  ASSERT_TRUE(volume_->SetShortName("other", "OTHER~1"));
  EXPECT_FALSE(files::HasOtherNames(Path(u"ntfs\\other")));
  EXPECT_TRUE(files::HasOtherNames(Path(u"ntfs\\file")));
}

// Streams of more than 64 KiB can't be read. A save leaves them where they are.
TEST_P(Ntfs, LargeStreamsAreNotLost) {
  Run(std::initializer_list<Step>{{Create, u"ntfs\\file"}});
  volume_.emplace(Host("ntfs"), "streams_interface=windows");
  std::ofstream(Host("ntfs/file:large")) << std::string(100'000, 's');
  volume_.emplace(Host("ntfs"), GetParam());
  ASSERT_TRUE(volume_->IsMounted());
  Run(std::initializer_list<Step>{{CopyNew, u"ntfs\\file", u"ntfs\\copy", kCantAccessFile},
                                  {Exists, u"ntfs\\copy", {}, kFileNotFound},
                                  {CopyNew, u"ntfs\\file", u"outside"},
                                  {Save, u"ntfs\\file"},
                                  {Has, u"ntfs\\file", u"saved"}});
  char names[64] = {};
  EXPECT_EQ(listxattr(Host("ntfs/file").c_str(), names, sizeof(names)), 11);
  EXPECT_STREQ(names, "user.large");
}

// Here new files too have a name from the start.
TEST_P(Ntfs, WhatKilledWritersLeaveGoesWithTheNext) {
  WriteContent(Path(u"content"), std::string(200'000, 'c'));
  // A process looks into a folder once, and knows it by its number: one that no volume had before.
  static int made = 0;
  for (int i = made += 100; i > 0; --i) {
    Touch(Host("ntfs/" + std::to_string(i)));
  }
  std::filesystem::create_directory(Host("ntfs/folder"));
  bool isLeft = false;
  const auto write = [this] {
    EXPECT_EQ(Copy(Path(u"content"), Path(u"ntfs\\folder\\copy")), kSuccess);
    EXPECT_EQ(Save(Path(u"ntfs\\folder\\saved"), {}), kSuccess);
    EXPECT_EQ(Delete(Path(u"ntfs\\folder\\copy"), {}), kSuccess);
  };
  KillInTheMiddle(20, write, [&] {
    for (const auto& entry : std::filesystem::directory_iterator(Host("ntfs/folder"))) {
      isLeft = isLeft || entry.path().filename().string().starts_with("tessel-");
    }
  });
  EXPECT_TRUE(isLeft) << "the kills prove nothing";
  write();
  EXPECT_EQ(Found(Path(u"ntfs\\folder\\*")), "., .., saved");
}

// Whether a file is in use is told here without asking the driver.
TEST_P(Ntfs, WhatASearchFindsIsDeletedWhereNothingSpeaksAgainstIt) {
  const auto deleteFound = [this](cvn::StringView name) {
    files::Search search;
    files::SearchEntry entry;
    const cvn::String path = Path(u"ntfs\\" + std::u16string(name));
    const Code code = search.First(path, &entry);
    return code == kSuccess ? files::Delete(path, entry) : code;
  };
  Run(std::initializer_list<Step>{{Create, u"ntfs\\used"},
                                  {Create, u"ntfs\\one"},
                                  {Create, u"ntfs\\two"},
                                  {Link, u"ntfs\\two", u"ntfs\\name"}});
  Set("one", "system.ntfs_attrib_be", {0, 0, 0, 0x21});
  Set("two", "system.ntfs_attrib_be", {0, 0, 0, 0x21});
  {
    files::File file;
    ASSERT_EQ(files::Open(Path(u"ntfs\\used"), files::Access::Read, files::Share::Read,
                          files::Disposition::OpenExisting, &file),
              kSuccess);
    EXPECT_EQ(deleteFound(u"used"), kSharingViolation);
  }
  EXPECT_EQ(deleteFound(u"used"), kSuccess);
  EXPECT_EQ(files::Delete(Path(u"ntfs\\one")), kAccessDenied);
  EXPECT_EQ(deleteFound(u"one"), kSuccess);
  EXPECT_EQ(deleteFound(u"two"), kAccessDenied) << "the other name would keep the attribute";
  EXPECT_EQ(Found(Path(u"ntfs\\*")), "., .., name, two");
}

// Many are found before their turn; what became of them by then counts.
TEST_P(Ntfs, WhatOthersDoToFilesOfAListingIsSeenAtTheirTurn) {
  constexpr cvn::StringView kFolder = u"ntfs\\folder\\";
  Run(std::initializer_list<Step>{{Make, u"ntfs\\folder"}, {Create, u"ntfs\\other"}});
  for (int i = 100; i < 500; ++i) {
    Touch(Host("ntfs/folder/file " + std::to_string(i)));
  }
  files::File used;
  const auto changeOthers = [&] {
    std::filesystem::remove(Host("ntfs/folder/file 200"));
    std::filesystem::create_hard_link(Host("ntfs/other"), Host("ntfs/folder/file 200"));
    Set("other", "system.ntfs_attrib_be", {0, 0, 0, 0x21});
    std::filesystem::remove(Host("ntfs/folder/file 210"));
    std::filesystem::create_directory(Host("ntfs/folder/file 210"));
    std::filesystem::remove(Host("ntfs/folder/file 220"));
    EXPECT_EQ(files::Open(Path(std::u16string(kFolder) + u"file 230"), files::Access::Read,
                          files::Share::Read, files::Disposition::OpenExisting, &used),
              kSuccess);
  };
  std::string failures;
  files::Search search;
  files::SearchEntry entry;
  Code code = search.First(Path(std::u16string(kFolder) + u"*"), &entry);
  for (; code == kSuccess; code = search.Next(&entry)) {
    if (entry.IsSelfOrParent()) {
      continue;
    }
    const std::string name = Utf8(entry.Name());
    const Code deleted = files::Delete(Joined(Path(cvn::String(kFolder)), entry.Name()), entry);
    failures += deleted == kSuccess ? "" : name + ": " + std::to_string(deleted) + "\n";
    if (name == "file 150") {
      changeOthers();
    }
  }
  EXPECT_EQ(failures, "file 200: 5\nfile 210: 5\nfile 220: 2\nfile 230: 32\n");
  EXPECT_EQ(Found(Path(u"ntfs\\folder\\*")), "., .., file 200, file 210, file 230");
}

// While a folder is filled its driver isn't asked what is in it: what others put there is seen.
TEST_P(Ntfs, CopiesSeeWhatOthersPutIntoTheFolder) {
  Run(std::initializer_list<Step>{{Make, u"ntfs\\folder"}, {Create, u"ntfs\\file"}});
  const auto copy = [this](const std::string& name) {
    return files::Copy(Path(u"ntfs\\file"),
                       Path(u"ntfs\\folder\\" + std::u16string(name.begin(), name.end())), true);
  };
  auto fill = [&copy, number = 0]() mutable {
    for (int i = 0; i < 15; ++i) {  // more than are read without being kept
      EXPECT_EQ(copy("some long name " + std::to_string(number++)), kSuccess);
    }
  };
  fill();
  Touch(Host("ntfs/folder/Taken by another"));
  EXPECT_EQ(copy("taken BY another"), kFileExists);
  fill();
  std::filesystem::rename(Host("ntfs/folder/Taken by another"), Host("ntfs/folder/Renamed by it"));
  EXPECT_EQ(copy("taken BY another"), kSuccess);
  EXPECT_EQ(copy("renamed by it"), kFileExists);
  fill();
  Touch(Host("ntfs/folder/A later one"));
  ASSERT_TRUE(volume_->SetShortName("folder/A later one", "LATER~1"));
  EXPECT_EQ(copy("later~1"), kFileExists);
  std::filesystem::remove(Host("ntfs/folder/A later one"));
  EXPECT_EQ(copy("a LATER one"), kSuccess);
  EXPECT_EQ(Found(Path(u"ntfs\\folder\\taken*")), "taken BY another");
}

// Where no file is without a name, those that are made ahead go when their turn doesn't come.
TEST_P(Ntfs, CopiesMadeAheadGo) {
  Run(std::initializer_list<Step>{{Make, u"ntfs\\from"}, {Make, u"ntfs\\to"}});
  for (int i = 100; i < 200; ++i) {
    Touch(Host("ntfs/from/file " + std::to_string(i)));
  }
  const std::string failures =
      CopyListed(Path(u"ntfs\\from"), Path(u"ntfs\\to"),
                 [](const std::string& name) { return name != "file 130"; });
  EXPECT_EQ(failures, "");
  EXPECT_EQ(CountIn(Host("ntfs/to")), 30u);
}

// Those that are made ahead don't take the descriptors that others need.
TEST_P(Ntfs, FewDescriptorsAreEnoughToCopyMany) {
  constexpr int kEnough = 8;  // for the listing, and a copy at a time
  Run(std::initializer_list<Step>{{Make, u"ntfs\\from"}, {Make, u"ntfs\\to"}});
  for (int i = 100; i < 200; ++i) {
    Touch(Host("ntfs/from/file " + std::to_string(i)));
  }
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  const int lowest = dup(STDIN_FILENO);
  close(lowest);
  const rlimit few = {static_cast<rlim_t>(lowest + kEnough), before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
  const std::string failures =
      CopyListed(Path(u"ntfs\\from"), Path(u"ntfs\\to"), [](const std::string&) { return true; });
  setrlimit(RLIMIT_NOFILE, &before);
  EXPECT_EQ(failures, "");
  EXPECT_EQ(CountIn(Host("ntfs/to")), 100u);
}

TEST_P(Ntfs, FoldersHaveNoArchive) {
  Run(std::initializer_list<Step>{{Make, u"ntfs\\folder"}, {Create, u"ntfs\\folder\\file"}});
  EXPECT_EQ(WordOf("folder"), "10");
  EXPECT_EQ(WordOf("folder/file"), "20");
}

TEST_P(Ntfs, AMachineIsMadeWhereAVolumeIsMounted) {
  const cvn::String folder = cvn::Utf8ToWide(Host("ntfs"));
  ASSERT_EQ(machine::Create(folder, {}), kSuccess);
  EXPECT_EQ(machine::Create(folder, {}), kDirNotEmpty);
  EXPECT_EQ(WordOf("Windows/System32"), "10");
  const std::string hive = "Windows/System32/config/SOFTWARE";
  EXPECT_TRUE(Get(hive, "system.ntfs_acl").size() > 20);
  EXPECT_EQ(SecurityOf(hive).find("World"), std::string::npos) << SecurityOf(hive);
  // Nothing stays on a volume that is too small.
  const PrivateMount small(Host("small"), "tmpfs", "size=32k");
  EXPECT_EQ(machine::Create(cvn::Utf8ToWide(Host("small")), {}), kDiskFull);
  EXPECT_TRUE(std::filesystem::is_empty(Host("small")));
}

}  // namespace
}  // namespace platform::test
