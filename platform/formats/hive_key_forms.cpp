// What a hive's keys are besides their names and what they hold: class, link, security.
#include <algorithm>
#include <cstring>

#include "platform/formats/hive_format.h"
#include "platform/formats/hive_image.h"
#include "platform/formats/hive_names.h"

namespace platform::posix {

HiveView HiveImage::SecurityAt(Cell cell) const {
  const View security = cells_.At(cell);
  return security.Size() >= kSecurityDescriptor && security.Is("sk") ? security : View();
}

// Keys without security are foreign, but no damage.
Code HiveImage::AddUser(Cell security) {
  if (security == kNoCell) {
    return kSuccess;
  }
  const View view = SecurityAt(security);
  const Code code = view ? cells_.Claim(security) : Code(kBadDatabase);
  if (code == kSuccess) {
    cells_.Put(security, kSecurityUsers, view.Long(kSecurityUsers) + 1);
  }
  return code;
}

// The last user's going takes the cell out of the ring.
Code HiveImage::RemoveUser(Cell security) {
  const View view = SecurityAt(security);
  if (security == kNoCell || !view || view.Long(kSecurityUsers) == 0) {
    return security == kNoCell ? kSuccess : Code(kBadDatabase);
  }
  Code code = cells_.Claim(security);
  if (code != kSuccess || view.Long(kSecurityUsers) > 1) {
    if (code == kSuccess) {
      cells_.Put(security, kSecurityUsers, view.Long(kSecurityUsers) - 1);
    }
    return code;
  }
  const Cell next = view.Long(kSecurityNext);
  const Cell previous = view.Long(kSecurityPrevious);
  const View before = SecurityAt(previous);
  const View after = SecurityAt(next);
  if (!before || !after || before.Long(kSecurityNext) != security ||
      after.Long(kSecurityPrevious) != security) {
    return kBadDatabase;
  }
  for (const Cell neighbour : {next, previous}) {
    code = code == kSuccess ? cells_.Claim(neighbour) : code;
  }
  if (code == kSuccess) {
    cells_.Put(previous, kSecurityNext, next);
    cells_.Put(next, kSecurityPrevious, previous);
    code = cells_.Free(security);
  }
  return code;
}

Code HiveImage::ReadName(Cell key, std::u16string* name, Cell* parent) const {
  const View view = KeyAt(key);
  if (!view) {
    return kBadDatabase;
  }
  *name = NameOfKey(view).Text();
  if (parent != nullptr) {
    *parent = view.Long(kKeyParent);
  }
  return kSuccess;
}

Code HiveImage::ReadSecurity(Cell key, std::vector<std::byte>* descriptor) const {
  descriptor->clear();
  const View view = KeyAt(key);
  const Cell cell = view ? view.Long(kKeySecurity) : kNoCell;
  if (!view || cell == kNoCell) {
    return view ? kSuccess : Code(kBadDatabase);
  }
  const View security = SecurityAt(cell);
  if (!security || security.Long(kSecuritySize) > security.Size() - kSecurityDescriptor) {
    return kBadDatabase;
  }
  const auto bytes = security.Part(kSecurityDescriptor, security.Long(kSecuritySize));
  descriptor->assign(bytes.begin(), bytes.end());
  return kSuccess;
}

Code HiveImage::SetForm(Cell key, std::u16string_view className, bool isLink,
                        std::span<const std::byte> descriptor, std::uint64_t time) {
  if (className.size() > kLongestClassName) {
    return kInvalidParameter;
  }
  return Change([&]() -> Code {
    Code code = ClaimKey(key);
    code = code == kSuccess ? SetClass(key, className) : code;
    code = code == kSuccess ? SetSecurity(key, descriptor) : code;
    if (code == kSuccess) {
      const auto flags = static_cast<std::uint16_t>(KeyAt(key).Short(kKeyFlags) & ~kFlagLink);
      cells_.Put(key, kKeyFlags, static_cast<std::uint16_t>(flags | (isLink ? kFlagLink : 0)));
      cells_.Put(key, kKeyWritten, time);
    }
    return code;
  });
}

Code HiveImage::SetClass(Cell key, std::u16string_view className) {
  KeyRecord former;
  Code code = Read(key, &former);
  if (code != kSuccess || former.className == className) {
    return code;
  }
  const View view = KeyAt(key);
  if (view.Short(kKeyClassSize) != 0) {
    code = cells_.Free(view.Long(kKeyClass));
  }
  Cell cell = kNoCell;
  if (code == kSuccess && !className.empty()) {
    code = cells_.Allocate(std::as_bytes(std::span(className)), 0, &cell);
  }
  if (code != kSuccess) {
    return code;
  }
  const std::size_t size = className.size() * sizeof(char16_t);
  cells_.Put(key, kKeyClass, cell);
  cells_.Put(key, kKeyClassSize, static_cast<std::uint16_t>(size));
  if (key != root_) {
    code = ClaimKey(former.parent);
  }
  if (code == kSuccess && key != root_) {
    Raise(former.parent, kKeyLongestClass, size);
  }
  return code;
}

Code HiveImage::SetSecurity(Cell key, std::span<const std::byte> descriptor) {
  std::vector<std::byte> has;
  Code code = ReadSecurity(key, &has);
  if (code != kSuccess || std::ranges::equal(has, descriptor)) {
    return code;
  }
  const Cell former = KeyAt(key).Long(kKeySecurity);
  Cell security = kNoCell;
  if (!descriptor.empty()) {
    Cell ring = kNoCell;
    code = FindSecurity(descriptor, &ring, &security);
    if (code == kSuccess) {
      code = AddUser(security);
    } else if (code == kFileNotFound) {
      code = AddSecurity(ring, descriptor, &security);
    }
  }
  code = code == kSuccess ? RemoveUser(former) : code;
  if (code == kSuccess) {
    cells_.Put(key, kKeySecurity, security);
  }
  return code;
}

// Looks for a descriptor in the ring that the root's stands in. 2 when there is none; `*ring` is a
// cell of it, or none.
Code HiveImage::FindSecurity(std::span<const std::byte> descriptor, Cell* ring, Cell* found) const {
  *ring = KeyAt(root_).Long(kKeySecurity);
  if (*ring == kNoCell) {
    return kFileNotFound;
  }
  const std::size_t most = cells_.DataSize() / kSecurityDescriptor;
  *found = *ring;
  for (std::size_t i = 0; i < most; ++i) {
    const View security = SecurityAt(*found);
    if (!security || security.Long(kSecuritySize) > security.Size() - kSecurityDescriptor) {
      return kBadDatabase;
    }
    if (security.Long(kSecuritySize) == descriptor.size() &&
        std::ranges::equal(security.Part(kSecurityDescriptor, descriptor.size()), descriptor)) {
      return kSuccess;
    }
    *found = security.Long(kSecurityNext);
    if (*found == *ring) {
      return kFileNotFound;
    }
  }
  return kBadDatabase;
}

// Adds a descriptor with one user behind a cell of the ring, or alone.
Code HiveImage::AddSecurity(Cell ring, std::span<const std::byte> descriptor, Cell* added) {
  std::vector<std::byte> content(kSecurityDescriptor);
  std::memcpy(content.data(), "sk", 2);
  Store(&content[kSecurityUsers], std::uint32_t{1});
  Store(&content[kSecuritySize], static_cast<std::uint32_t>(descriptor.size()));
  content.insert(content.end(), descriptor.begin(), descriptor.end());
  Code code = cells_.Allocate(content, 0, added);
  if (code != kSuccess) {
    return code;
  }
  const Cell before = ring == kNoCell ? *added : ring;
  const Cell after = ring == kNoCell ? *added : SecurityAt(ring).Long(kSecurityNext);
  if (!SecurityAt(after)) {
    return kBadDatabase;
  }
  for (const Cell neighbour : {before, after}) {
    code = code == kSuccess ? cells_.Claim(neighbour) : code;
  }
  if (code == kSuccess) {
    cells_.Put(*added, kSecurityNext, after);
    cells_.Put(*added, kSecurityPrevious, before);
    cells_.Put(before, kSecurityNext, *added);
    cells_.Put(after, kSecurityPrevious, *added);
  }
  return code;
}

}  // namespace platform::posix
