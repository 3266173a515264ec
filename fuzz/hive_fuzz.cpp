// Hive files: hostile ones are read, changed and written; valid ones must contain after a flush
// what was put into them.
//
// Byte 0 of an input chooses the hive: 0 one with the cells that stand behind the changes, 1 the
// whole file that stands there, 2 an empty one. Byte 1 counts the changes, which follow, four bytes
// each.
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz/input.h"
#include "fuzz/scratch_machine.h"
#include "platform/formats/names.h"
#include "platform/offline/registry/hive.h"
#include "platform/offline/registry/registry_values.h"

namespace tessel::fuzz {
namespace {

using platform::Code;
using platform::kSuccess;
using platform::posix::Hive;
using platform::posix::HiveFile;
using platform::posix::HostPath;
using platform::posix::KeyPtr;
using platform::posix::SubKeyTable;
using platform::posix::ValueTable;

constexpr std::size_t kBase = 4096;
constexpr std::size_t kBinUnit = 4096;
constexpr std::size_t kBinHeader = 32;
constexpr std::size_t kDataSize = 40;
constexpr std::size_t kChecksum = 508;

void PutLong(std::uint32_t number, std::size_t at, std::string* bytes) {
  std::memcpy(bytes->data() + at, &number, sizeof(number));
}

// No mutation finds a checksum.
void FixChecksum(std::string* file) {
  std::uint32_t sum = 0;
  for (std::size_t at = 0; at < kChecksum; at += sizeof(sum)) {
    std::uint32_t word = 0;
    std::memcpy(&word, file->data() + at, sizeof(word));
    sum ^= word;
  }
  PutLong(sum == 0 ? 1 : (sum == 0xFFFFFFFF ? 0xFFFFFFFE : sum), kChecksum, file);
}

// A file with one bin, in which these cells are.
std::string FileWithCells(std::string_view cells) {
  const HiveFile empty = HiveFile::MakeEmpty(u"fuzz", HiveFile::Readers::All);
  std::string file(reinterpret_cast<const char*>(empty.Bytes().data()), kBase + kBinHeader);
  file.append(cells);
  const std::size_t size = (file.size() - kBase + kBinUnit - 1) / kBinUnit * kBinUnit;
  // One free cell fills the rest.
  const std::size_t rest = kBase + size - file.size();
  if (rest >= sizeof(std::uint32_t)) {
    file.append(rest, '\0');
    PutLong(static_cast<std::uint32_t>(rest), file.size() - rest, &file);
  }
  file.resize(kBase + size);
  PutLong(static_cast<std::uint32_t>(size), kBase + 8, &file);
  PutLong(static_cast<std::uint32_t>(size), kDataSize, &file);
  return file;
}

// Every reachable key, with a text that describes it completely.
struct Walk {
  std::vector<KeyPtr> keys;
  std::vector<std::u16string> texts;
};

void AppendNumber(std::uint64_t number, std::u16string* text) {
  for (const char digit : std::to_string(number)) {
    text->push_back(static_cast<char16_t>(digit));
  }
  text->push_back(u';');
}

void AppendValues(Hive* hive, const KeyPtr& key, std::u16string* text) {
  ValueTable* values = nullptr;
  if (hive->Values(*key, &values) != kSuccess) {
    return;
  }
  for (const auto& [age, value] : values->byAge) {
    std::uint32_t type = 0;
    std::vector<std::byte> data;
    *text += value.name;
    AppendNumber(hive->Query(*key, value.name, &type, &data), text);
    AppendNumber(type, text);
    *text += platform::posix::ValueData{type, data}.Text().value_or(u"");
    for (const std::byte byte : data) {
      text->push_back(static_cast<char16_t>(byte));
    }
  }
}

Walk WalkAll(Hive* hive) {
  Walk walk;
  KeyPtr root;
  if (hive->Root(&root) != kSuccess) {
    return walk;
  }
  walk.keys.push_back(root);
  for (std::size_t at = 0; at < walk.keys.size(); ++at) {
    const KeyPtr key = walk.keys[at];
    std::u16string& text = walk.texts.emplace_back(key->name);
    AppendNumber(key->isLink ? 1 : 0, &text);
    AppendValues(hive, key, &text);
    SubKeyTable* subKeys = nullptr;
    if (hive->SubKeys(*key, &subKeys) == kSuccess) {
      for (const auto& [name, subKey] : *subKeys) {
        walk.keys.push_back(subKey);
      }
    }
    if (key->isLink) {
      std::u16string target;
      IgnoreError(hive->LinkTarget(*key, &target));
    }
  }
  return walk;
}

// The names that changes use: some are equal without case, some need two bytes a character.
constexpr cvn::StringView kNames[] = {u"a",   u"A", u"b", u"Key", u"kEY", u"\u0142\u00E9",
                                      u"x y", u""};

void ChangeOne(Hive* hive, std::string_view change, Walk* walk) {
  const auto byte = [&](std::size_t at) { return static_cast<std::uint8_t>(change[at]); };
  const KeyPtr key = walk->keys[byte(1) % walk->keys.size()];
  const cvn::StringView name = kNames[byte(2) % std::size(kNames)];
  if (key->isDeleted) {
    return;
  }
  SubKeyTable* subKeys = nullptr;
  const bool isRead = hive->SubKeys(*key, &subKeys) == kSuccess;
  switch (byte(0) % 4) {
    case 0: {
      KeyPtr added;
      const bool isFree = isRead && subKeys->find(platform::posix::Folded(name)) == subKeys->end();
      const bool isVolatile = key->isVolatile || byte(3) % 8 == 7;
      if (isFree && !name.empty() && hive->Add(*key, name, isVolatile, &added) == kSuccess) {
        walk->keys.push_back(added);
      }
      break;
    }
    case 1: {
      const std::vector<std::byte> data(std::size_t{byte(3)} * byte(3), std::byte{byte(2)});
      IgnoreError(hive->SetValue(*key, name, byte(3) % 12, data));
      break;
    }
    case 2:
      IgnoreError(hive->DeleteValue(*key, name));
      break;
    default:
      if (isRead && subKeys->empty() && key->parent != nullptr) {
        IgnoreError(hive->Remove(*key));
      }
  }
}

// Returns whether all changes succeeded.
bool ChangeAndFlush(Hive* hive, std::string_view changes) {
  Walk walk = WalkAll(hive);
  for (; !walk.keys.empty() && changes.size() >= 4; changes.remove_prefix(4)) {
    ChangeOne(hive, changes, &walk);
  }
  return !walk.keys.empty() && hive->Flush() == kSuccess;
}

void ChangeHostile(const HostPath& place, std::string file, std::string_view changes) {
  if (file.size() >= kBase) {
    FixChecksum(&file);
  }
  WriteScratchFile("hive", file);
  {
    Hive hive(place);
    ChangeAndFlush(&hive, changes);
  }
  Hive again(place);
  WalkAll(&again);
}

void ChangeSound(const HostPath& place, std::string_view changes) {
  const HiveFile empty = HiveFile::MakeEmpty(u"fuzz", HiveFile::Readers::All);
  WriteScratchFile("hive",
                   {reinterpret_cast<const char*>(empty.Bytes().data()), empty.Bytes().size()});
  // In two halves, so that the second one changes what was read from a file.
  const std::size_t half = changes.size() / 8 * 4;
  for (const std::string_view part : {changes.substr(0, half), changes.substr(half)}) {
    Hive hive(place);
    Require(ChangeAndFlush(&hive, part), "a sound hive can be written");
    std::vector<std::u16string> expected;
    const Walk walk = WalkAll(&hive);
    for (std::size_t at = 0; at < walk.keys.size(); ++at) {
      if (!walk.keys[at]->isVolatile) {
        expected.push_back(walk.texts[at]);
      }
    }
    Hive again(place);
    Require(WalkAll(&again).texts == expected, "a hive that was written holds what it was given");
  }
}

}  // namespace
}  // namespace tessel::fuzz

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
  tessel::fuzz::MakeScratchMachine();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  namespace fuzz = tessel::fuzz;
  fuzz::Input input(data, size);
  const std::uint8_t kind = input.Byte();
  const std::size_t count = std::size_t{input.Byte()} % 64 * 4;
  const std::string_view rest = input.Rest();
  const std::string_view changes = rest.substr(0, count);
  const std::string_view bytes = rest.substr(changes.size());
  const auto place = platform::posix::PlaceOnHost(fuzz::ScratchFolder() + "/hive");
  if (kind % 3 == 2) {
    fuzz::ChangeSound(place, changes);
  } else {
    fuzz::ChangeHostile(place, kind % 3 == 1 ? std::string(bytes) : fuzz::FileWithCells(bytes),
                        changes);
  }
  return 0;
}
