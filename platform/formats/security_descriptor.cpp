#include "platform/formats/security_descriptor.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <optional>

#include "platform/formats/little_endian.h"

namespace platform::security {
namespace {

using Bytes = std::span<const std::byte>;
using Buffer = std::vector<std::byte>;

// Of [MS-DTYP]: 2.4.6 SECURITY_DESCRIPTOR, 2.4.2.2 SID, 2.4.5 ACL, 2.4.4.1 ACE_HEADER.
constexpr std::size_t kHeaderSize = 20;
constexpr std::size_t kOwnerOffset = 4;
constexpr std::size_t kGroupOffset = 8;
constexpr std::size_t kSaclOffset = 12;
constexpr std::size_t kDaclOffset = 16;
constexpr std::uint8_t kRevision = 1;
constexpr std::uint16_t kDaclPresent = 0x0004;
constexpr std::uint16_t kSaclPresent = 0x0010;
constexpr std::uint16_t kDaclAutoInherited = 0x0400;
constexpr std::uint16_t kSaclAutoInherited = 0x0800;
constexpr std::uint16_t kDaclProtected = 0x1000;
constexpr std::uint16_t kSelfRelative = 0x8000;

constexpr std::size_t kSidHeaderSize = 8;
constexpr std::size_t kMostSubAuthorities = 15;

constexpr std::uint8_t kAclRevision = 2;
constexpr std::uint8_t kAclRevisionForObjects = 4;
constexpr std::size_t kAclHeaderSize = 8;
constexpr std::size_t kAceHeaderSize = 4;
constexpr std::size_t kAceSid = 8;  // behind the header and the mask

enum AceFlag : std::uint8_t {
  kObjectInherit = 0x01,
  kContainerInherit = 0x02,
  kNoPropagate = 0x04,
  kInheritOnly = 0x08,
  kInherited = 0x10,
  kAudited = 0xC0,  // successes and failures
};
constexpr std::uint8_t kInheritable = kObjectInherit | kContainerInherit;

// The types of ACEs with a mask and a SID in front: allowed, denied, and both with conditions; for
// the SACL audit, alarm, both with conditions, label, resource attribute, policy.
constexpr std::array<std::uint8_t, 4> kDaclTypes = {0x00, 0x01, 0x09, 0x0A};
constexpr std::array<std::uint8_t, 7> kSaclTypes = {0x02, 0x03, 0x0D, 0x0E, 0x11, 0x12, 0x13};

constexpr std::uint32_t kFullAccess = 0x001F01FF;  // FILE_ALL_ACCESS
// Each generic right and the rights of a file that it stands for, as in "File Access Rights".
constexpr std::pair<std::uint32_t, std::uint32_t> kGenericRights[] = {
    {0x80000000, 0x00120089},  // FILE_GENERIC_READ
    {0x40000000, 0x00120116},  // FILE_GENERIC_WRITE
    {0x20000000, 0x001200A0},  // FILE_GENERIC_EXECUTE
    {0x10000000, kFullAccess},
};

constexpr std::array<std::byte, 12> WellKnownSid(std::uint8_t authority, std::uint8_t last) {
  return {std::byte{kRevision}, std::byte{1},   {}, {}, {}, {}, {},
          std::byte{authority}, std::byte{last}};
}
constexpr auto kCreatorOwner = WellKnownSid(3, 0);
constexpr auto kCreatorGroup = WellKnownSid(3, 1);
constexpr auto kLocalSystem = WellKnownSid(5, 18);

// The SID at `offset`; nothing when it isn't whole.
Bytes SidAt(Bytes bytes, std::size_t offset) {
  if (offset > bytes.size() || bytes.size() - offset < kSidHeaderSize) {
    return {};
  }
  const auto count = NumberAt<std::uint8_t>(bytes, offset + 1);
  const std::size_t size = kSidHeaderSize + 4 * std::size_t{count};
  const bool isSound = NumberAt<std::uint8_t>(bytes, offset) == kRevision &&
                       count <= kMostSubAuthorities && size <= bytes.size() - offset;
  return isSound ? bytes.subspan(offset, size) : Bytes();
}

bool IsSelfRelative(Bytes descriptor) {
  return descriptor.size() >= kHeaderSize && NumberAt<std::uint8_t>(descriptor, 0) == kRevision &&
         (NumberAt<std::uint16_t>(descriptor, 2) & kSelfRelative) != 0;
}

// The SID whose offset stands in the header; nothing where there is none.
Bytes SidOf(Bytes descriptor, std::size_t field) {
  const auto offset = NumberAt<std::uint32_t>(descriptor, field);
  return IsSelfRelative(descriptor) && offset >= kHeaderSize ? SidAt(descriptor, offset) : Bytes();
}

// The ACL likewise, as long as it says that it is.
Bytes AclOf(Bytes descriptor, std::size_t field, std::uint16_t present) {
  const auto offset = NumberAt<std::uint32_t>(descriptor, field);
  if (!IsSelfRelative(descriptor) || (NumberAt<std::uint16_t>(descriptor, 2) & present) == 0 ||
      offset < kHeaderSize || offset > descriptor.size() ||
      descriptor.size() - offset < kAclHeaderSize) {
    return {};
  }
  const auto size = NumberAt<std::uint16_t>(descriptor, offset + 2);
  return size >= kAclHeaderSize && size <= descriptor.size() - offset
             ? descriptor.subspan(offset, size)
             : Bytes();
}

template <typename T>
void Put(T value, std::size_t offset, Buffer* bytes) {
  std::memcpy(bytes->data() + offset, &value, sizeof(value));
}

void Append(Bytes bytes, Buffer* to) { to->insert(to->end(), bytes.begin(), bytes.end()); }

// A list under construction.
class Acl {
 public:
  bool IsEmpty() const { return count_ == 0; }
  // The list with its header; nothing when it is too large for its own field.
  std::optional<Buffer> Finished() const {
    const std::size_t size = kAclHeaderSize + entries_.size();
    if (size > std::numeric_limits<std::uint16_t>::max()) {
      return std::nullopt;
    }
    Buffer acl(kAclHeaderSize);
    Put(revision_, 0, &acl);
    Put(static_cast<std::uint16_t>(size), 2, &acl);
    Put(static_cast<std::uint16_t>(count_), 4, &acl);
    Append(entries_, &acl);
    return acl;
  }
  void SetRevision(std::uint8_t revision) { revision_ = revision; }
  // `more` is what comes behind the SID.
  void Add(std::uint8_t type, std::uint8_t flags, std::uint32_t mask, Bytes sid, Bytes more = {}) {
    const std::size_t at = entries_.size();
    entries_.resize(at + kAceSid);
    Append(sid, &entries_);
    Append(more, &entries_);
    Put(type, at, &entries_);
    Put(flags, at + 1, &entries_);
    Put(static_cast<std::uint16_t>(entries_.size() - at), at + 2, &entries_);
    Put(mask, at + kAceHeaderSize, &entries_);
    ++count_;
  }

 private:
  std::uint8_t revision_ = kAclRevision;
  std::size_t count_ = 0;
  Buffer entries_;
};

std::uint32_t Mapped(std::uint32_t mask) {
  for (const auto& [generic, rights] : kGenericRights) {
    mask = (mask & generic) != 0 ? (mask & ~generic) | rights : mask;
  }
  return mask;
}

// Makes the lists of a new object from those of its folder.
class Heir {
 public:
  Heir(Bytes owner, Bytes group, NewObject kind) : owner_(owner), group_(group), kind_(kind) {}

  // What the ACL passes on, of ACEs of these types. Nothing of one with a damaged ACE.
  Acl Inherited(Bytes acl, std::span<const std::uint8_t> types) const {
    Acl made;
    made.SetRevision(NumberAt<std::uint8_t>(acl, 0) == kAclRevisionForObjects
                         ? kAclRevisionForObjects
                         : kAclRevision);
    const auto count = NumberAt<std::uint16_t>(acl, 4);
    std::size_t at = kAclHeaderSize;
    for (std::size_t i = 0; i < count; ++i) {
      const auto size = NumberAt<std::uint16_t>(acl, at + 2);
      if (at > acl.size() || size < kAceHeaderSize || size > acl.size() - at ||
          !Pass(acl.subspan(at, size), types, &made)) {
        return {};
      }
      at += size;
    }
    return made;
  }

 private:
  // False when the ACE is damaged.
  bool Pass(Bytes ace, std::span<const std::uint8_t> types, Acl* made) const {
    const auto type = NumberAt<std::uint8_t>(ace, 0);
    const auto flags = NumberAt<std::uint8_t>(ace, 1);
    const bool isFolder = kind_ == NewObject::Folder;
    const bool isEffective = (flags & (isFolder ? kContainerInherit : kObjectInherit)) != 0;
    const bool goesOn = isFolder && (flags & kInheritable) != 0 && (flags & kNoPropagate) == 0;
    if (std::ranges::count(types, type) == 0 || !(isEffective || goesOn)) {
      return true;
    }
    const Bytes sid = SidAt(ace, kAceSid);
    if (sid.empty()) {
      return false;
    }
    const Bytes more = ace.subspan(kAceSid + sid.size());
    const auto mask = NumberAt<std::uint32_t>(ace, kAceHeaderSize);
    const Bytes trustee = Substituted(sid);
    const bool isGeneric = Mapped(mask) != mask || trustee.data() != sid.data();
    const auto kept = static_cast<std::uint8_t>(kInherited | (flags & kAudited));
    const auto passed = static_cast<std::uint8_t>(kept | (flags & kInheritable));
    // What is generic stays so for those below, and is made out for the object itself apart.
    const bool isOne = isEffective && goesOn && !isGeneric;
    if (isEffective) {
      made->Add(type, isOne ? passed : kept, Mapped(mask), trustee, more);
    }
    if (goesOn && !isOne) {
      made->Add(type, passed | kInheritOnly, mask, sid, more);
    }
    return true;
  }

  Bytes Substituted(Bytes sid) const {
    return std::ranges::equal(sid, kCreatorOwner)   ? owner_
           : std::ranges::equal(sid, kCreatorGroup) ? group_
                                                    : sid;
  }

  const Bytes owner_;
  const Bytes group_;
  const NewObject kind_;
};

Buffer Assemble(std::uint16_t control, Bytes owner, Bytes group, const Acl& sacl, const Acl& dacl) {
  const std::optional<Buffer> saclBytes = sacl.Finished();
  const std::optional<Buffer> daclBytes = dacl.Finished();
  if (owner.empty() || group.empty() || !saclBytes || !daclBytes) {
    return {};
  }
  Buffer descriptor(kHeaderSize);
  const auto add = [&descriptor](std::size_t field, Bytes part) {
    Put(static_cast<std::uint32_t>(descriptor.size()), field, &descriptor);
    Append(part, &descriptor);
  };
  Put(kRevision, 0, &descriptor);
  Put(static_cast<std::uint16_t>(control | kSelfRelative), 2, &descriptor);
  if ((control & kSaclPresent) != 0) {
    add(kSaclOffset, *saclBytes);
  }
  add(kDaclOffset, *daclBytes);
  add(kOwnerOffset, owner);
  add(kGroupOffset, group);
  return descriptor;
}

}  // namespace

std::vector<std::byte> Inherit(std::span<const std::byte> parent, std::span<const std::byte> made,
                               NewObject kind) {
  const Bytes owner = SidOf(made, kOwnerOffset);
  const Bytes group = SidOf(made, kGroupOffset);
  const Heir heir(owner, group, kind);
  Acl dacl = heir.Inherited(AclOf(parent, kDaclOffset, kDaclPresent), kDaclTypes);
  const Acl sacl = heir.Inherited(AclOf(parent, kSaclOffset, kSaclPresent), kSaclTypes);
  std::uint16_t control = kDaclPresent | (dacl.IsEmpty() ? 0 : kDaclAutoInherited) |
                          (sacl.IsEmpty() ? 0 : kSaclPresent | kSaclAutoInherited);
  if (dacl.IsEmpty()) {
    dacl.Add(kDaclTypes[0], 0, kFullAccess, owner);
    dacl.Add(kDaclTypes[0], 0, kFullAccess, kLocalSystem);
  }
  return Assemble(control, owner, group, sacl, dacl);
}

std::vector<std::byte> ForOwnerAlone(std::span<const std::byte> made) {
  const Bytes owner = SidOf(made, kOwnerOffset);
  Acl dacl;
  dacl.Add(kDaclTypes[0], 0, kFullAccess, owner);
  return Assemble(kDaclPresent | kDaclProtected, owner, SidOf(made, kGroupOffset), Acl(), dacl);
}

}  // namespace platform::security
