#include <json/reader.h>
#include <json/value.h>

#include <charconv>
#include <exception>
#include <initializer_list>
#include <memory>

#include "changes/manifest.h"
#include "changes/manifest_names.h"
#include "changes/manifest_text.h"
#include "support/format.h"
#include "support/utf.h"

namespace tessel {
namespace {

using platform::machine::ChangeSet;
using platform::machine::ComesBefore;
using platform::machine::EntryKind;
using platform::machine::EntryState;
using platform::machine::FileChange;
using platform::machine::KeyChange;
using platform::machine::KeyState;
using platform::machine::ValueChange;
using platform::machine::ValueState;

using Names = std::initializer_list<const char*>;

constexpr std::uint32_t kPermissions = 07777;

// A path on drive C: with a name behind each separator, none of which leads up or elsewhere.
bool IsPath(cvn::StringView path) {
  if (!path.starts_with(u"C:\\") ||
      path.find_first_of(cvn::StringView(u"/\0", 2)) != cvn::StringView::npos) {
    return false;
  }
  for (cvn::StringView rest = path.substr(3);;) {
    const cvn::StringView name = rest.substr(0, rest.find(u'\\'));
    if (name.empty() || name == u"." || name == u"..") {
      return false;
    }
    if (name.size() == rest.size()) {
      return true;
    }
    rest.remove_prefix(name.size() + 1);
  }
}

// Names with a separator between them; none for a hive's root.
bool IsKeyPath(cvn::StringView path) {
  return path.empty() || (path.front() != u'\\' && path.back() != u'\\' &&
                          path.find(u"\\\\") == cvn::StringView::npos);
}

// Fills in what JSON has. The first fault is kept, and from then on nothing means anything.
class ManifestReader {
 public:
  explicit ManifestReader(cvn::String* problem) : problem_(*problem) {}

  bool Read(const Json::Value& document, SetRecord* record, ChangeSet* changes) {
    Expect(document,
           {"version", "state", "time", "machine", "patch", "exitCode", "reason", "view", "files",
            "keys"},
           {"patchId"});
    if (isGood_ && document["version"] != kManifestVersion) {
      Fail("version");
    }
    ReadRecord(document, record);
    ReadList(document["files"], "files", &changes->files, &ManifestReader::ReadFile);
    ReadList(document["keys"], "keys", &changes->keys, &ManifestReader::ReadKey);
    ExpectOrder(*changes);
    return isGood_;
  }

 private:
  bool Fail(const char* what) {
    if (isGood_) {
      problem_ = place_.Empty() ? cvn::Format(u"'%s' isn't as it has to be", cvn::Utf8ToWide(what))
                                : cvn::Format(u"'%s' of %s isn't as it has to be",
                                              cvn::Utf8ToWide(what), place_);
    }
    isGood_ = false;
    return false;
  }

  // An object that has all of these members and no others but optional ones.
  void Expect(const Json::Value& value, Names required, Names optional) {
    if (!isGood_ || !value.isObject()) {
      Fail("object");
      return;
    }
    std::size_t known = 0;
    for (const char* name : required) {
      ++known;
      if (!value.isMember(name)) {
        Fail(name);
      }
    }
    for (const char* name : optional) {
      known += value.isMember(name) ? 1U : 0U;
    }
    if (value.size() != known) {
      Fail("members");
    }
  }

  template <typename Number>
  Number ReadNumber(const Json::Value& value, const char* name) {
    if (!isGood_ || !value[name].isIntegral() || !value[name].is<Number>()) {
      Fail(name);
      return 0;
    }
    return value[name].as<Number>();
  }

  std::string ReadString(const Json::Value& value, const char* name) {
    if (!isGood_ || !value[name].isString()) {
      Fail(name);
      return {};
    }
    return value[name].asString();
  }

  cvn::String ReadText(const Json::Value& value, const char* name) {
    const auto text = isGood_ ? TextFromJson(value[name]) : std::nullopt;
    if (!text) {
      Fail(name);
    }
    return text.value_or(cvn::String());
  }

  std::string ReadBytes(const Json::Value& value, const char* name) {
    const auto bytes = isGood_ ? BytesFromJson(value[name]) : std::nullopt;
    if (!bytes) {
      Fail(name);
    }
    return bytes.value_or(std::string());
  }

  std::vector<std::byte> ReadHex(const Json::Value& value, const char* name) {
    auto bytes = FromHex(ReadString(value, name));
    if (!bytes) {
      Fail(name);
    }
    return std::move(bytes).value_or(std::vector<std::byte>());
  }

  // A number that is written as a text: JSON's own have 53 bits for many a reader.
  template <typename Number>
  Number ReadDigits(const Json::Value& value, const char* name, int base) {
    const std::string text = ReadString(value, name);
    Number number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    if (text.empty() || error != std::errc() || end != text.data() + text.size()) {
      Fail(name);
    }
    return number;
  }

  void ReadRecord(const Json::Value& document, SetRecord* record) {
    const auto state = Named(kStateNames, ReadString(document, "state"));
    record->state = state.value_or(SetState::Rehearsed);
    record->time = ReadDigits<std::int64_t>(document, "time", 10);
    record->machineFolder = ReadText(document, "machine");
    record->patch = ReadText(document, "patch");
    if (document.isMember("patchId")) {
      record->patchId = ReadText(document, "patchId");
    }
    record->exitCode = ReadNumber<std::int32_t>(document, "exitCode");
    record->reason = ReadString(document, "reason");
    record->view = ReadString(document, "view");
    if (!state) {
      Fail("state");
    }
    // 18 digits: from 1917 to 4769.
    if (record->time < 100'000'000'000'000'000 || record->time > 999'999'999'999'999'999) {
      Fail("time");
    }
    if (std::ranges::find(kViewNames, record->view) == std::end(kViewNames)) {
      Fail("view");
    }
  }

  template <typename Item>
  void ReadList(const Json::Value& value, const char* name, cvn::List<Item>* items,
                void (ManifestReader::*read)(const Json::Value&, Item*)) {
    if (!isGood_ || !value.isArray()) {
      Fail(name);
      return;
    }
    for (const Json::Value& one : value) {
      (this->*read)(one, &items->emplace_back());
      if (!isGood_) {
        return;
      }
    }
  }

  template <typename State>
  void ReadSides(const Json::Value& value, std::optional<State>* before,
                 std::optional<State>* after,
                 void (ManifestReader::*read)(const Json::Value&, State*)) {
    if (isGood_ && !value.isMember("before") && !value.isMember("after")) {
      Fail("before");
    }
    if (isGood_ && value.isMember("before")) {
      (this->*read)(value["before"], &before->emplace());
    }
    if (isGood_ && value.isMember("after")) {
      (this->*read)(value["after"], &after->emplace());
    }
  }

  void ReadFile(const Json::Value& value, FileChange* change) {
    Expect(value, {"path"}, {"movedFrom", "before", "after"});
    change->path = ReadText(value, "path");
    place_ = change->path;
    if (!IsPath(change->path)) {
      Fail("path");
    }
    ReadSides(value, &change->before, &change->after, &ManifestReader::ReadEntry);
    if (isGood_ && value.isMember("movedFrom")) {
      change->movedFrom = ReadText(value, "movedFrom");
      if (!IsPath(change->movedFrom) || !change->before || !change->after) {
        Fail("movedFrom");
      }
    }
  }

  void ReadEntry(const Json::Value& value, EntryState* state) {
    const auto kind =
        isGood_ && value.isObject() ? Named(kKindNames, ReadString(value, "kind")) : std::nullopt;
    if (!kind) {
      Fail("kind");
      return;
    }
    state->kind = *kind;
    if (state->kind == EntryKind::Link) {
      Expect(value, {"kind", "target"}, {});
      state->attributes = platform::files::kReparsePoint;
      state->target = ReadBytes(value, "target");
      return;
    }
    const bool isFile = state->kind == EntryKind::File;
    Expect(value,
           isFile ? Names{"kind", "attributes", "mode", "written", "size", "digest"}
                  : Names{"kind", "attributes", "mode", "written"},
           {"extended"});
    state->attributes = ReadNumber<Json::UInt>(value, "attributes");
    state->written = ReadDigits<std::int64_t>(value, "written", 10);
    state->mode = ReadDigits<std::uint32_t>(value, "mode", 8);
    if (state->mode > kPermissions) {
      Fail("mode");
    }
    if (isFile) {
      constexpr std::size_t kDigestSize = 32;
      state->size = ReadNumber<Json::UInt64>(value, "size");
      state->digest = ReadString(value, "digest");
      if (ReadHex(value, "digest").size() != kDigestSize) {
        Fail("digest");
      }
    }
    if (isGood_ && value.isMember("extended")) {
      ReadList(value["extended"], "extended", &state->extended, &ManifestReader::ReadExtended);
    }
  }

  void ReadExtended(const Json::Value& value,
                    std::pair<std::string, std::vector<std::byte>>* attribute) {
    Expect(value, {"name", "value"}, {});
    attribute->first = ReadBytes(value, "name");
    attribute->second = ReadHex(value, "value");
    if (attribute->first.empty() || attribute->first.find('\0') != std::string::npos) {
      Fail("name");
    }
  }

  void ReadKey(const Json::Value& value, KeyChange* change) {
    Expect(value, {"hive", "path", "values"}, {"before", "after"});
    change->hive = ReadText(value, "hive");
    change->path = ReadText(value, "path");
    place_ = change->path;
    if (!IsPath(change->hive)) {
      Fail("hive");
    }
    if (!IsKeyPath(change->path)) {
      Fail("path");
    }
    ReadSides(value, &change->before, &change->after, &ManifestReader::ReadForm);
    if (isGood_) {
      ReadList(value["values"], "values", &change->values, &ManifestReader::ReadValue);
    }
  }

  void ReadForm(const Json::Value& value, KeyState* state) {
    Expect(value, {"security"}, {"class", "isLink"});
    state->security = ReadHex(value, "security");
    if (isGood_ && value.isMember("class")) {
      state->className = ReadText(value, "class");
    }
    if (isGood_ && value.isMember("isLink")) {
      state->isLink = value["isLink"].isBool() ? value["isLink"].asBool() : Fail("isLink");
    }
  }

  void ReadValue(const Json::Value& value, ValueChange* change) {
    Expect(value, {"name"}, {"before", "after"});
    change->name = ReadText(value, "name");
    ReadSides(value, &change->before, &change->after, &ManifestReader::ReadData);
  }

  void ReadData(const Json::Value& value, ValueState* state) {
    Expect(value, {"type", "data"}, {});
    state->type = ReadNumber<Json::UInt>(value, "type");
    state->data = ReadHex(value, "data");
  }

  void FailOnOrder(cvn::StringView path) {
    problem_ = cvn::Format(u"%s stands in it twice, or in a wrong place", path);
    isGood_ = false;
  }

  // Everything once, and what contains something before it.
  void ExpectOrder(const ChangeSet& changes) {
    for (std::size_t i = 1; isGood_ && i < changes.files.size(); ++i) {
      if (!ComesBefore(changes.files[i - 1].path, changes.files[i].path)) {
        FailOnOrder(changes.files[i].path);
      }
    }
    for (std::size_t i = 1; isGood_ && i < changes.keys.size(); ++i) {
      const KeyChange& left = changes.keys[i - 1];
      const KeyChange& right = changes.keys[i];
      if (!(left.hive == right.hive ? ComesBefore(left.path, right.path)
                                    : ComesBefore(left.hive, right.hive))) {
        FailOnOrder(right.path);
      }
    }
  }

  cvn::String& problem_;
  cvn::String place_;  // the path of the change that is being read
  bool isGood_ = true;
};

}  // namespace

bool ParseManifest(std::string_view text, SetRecord* record, ChangeSet* changes,
                   cvn::String* problem) {
  *record = {};
  *changes = {};
  try {
    Json::CharReaderBuilder rules;
    Json::CharReaderBuilder::strictMode(&rules.settings_);
    const std::unique_ptr<Json::CharReader> reader(rules.newCharReader());
    Json::Value document;
    if (!reader->parse(text.data(), text.data() + text.size(), &document, nullptr)) {
      *problem = u"it is no JSON";
      return false;
    }
    return ManifestReader(problem).Read(document, record, changes);
  } catch (const std::exception&) {
    *problem = u"it is too large, or nested too deep";
    return false;
  }
}

}  // namespace tessel
