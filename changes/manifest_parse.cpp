#include <json/value.h>

#include <exception>
#include <optional>

#include "changes/json_input.h"
#include "changes/manifest.h"
#include "changes/manifest_fields.h"
#include "changes/manifest_names.h"

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

// Fills in what JSON has.
class ManifestReader : private ManifestFields {
 public:
  using ManifestFields::ManifestFields;

  bool Read(const Json::Value& document, SetRecord* record, ChangeSet* changes) {
    Expect(document,
           {"version", "state", "time", "machine", "patch", "exitCode", "reason", "view", "files",
            "keys"},
           {"patchId"});
    if (ReadNumber<std::int32_t>(document, "version") != kManifestVersion) {
      Fail("version");
    }
    ReadRecord(document, record);
    ReadList(document, "files", &changes->files, &ManifestReader::ReadFile);
    ReadList(document, "keys", &changes->keys, &ManifestReader::ReadKey);
    ExpectOrder(*changes);
    return IsGood();
  }

 private:
  void ReadRecord(const Json::Value& document, SetRecord* record) {
    const auto state = Named(kStateNames, ReadString(document, "state"));
    record->state = state.value_or(SetState::Rehearsed);
    record->time = ReadDigits<std::int64_t>(document, "time", 10);
    record->machineFolder = ReadText(document, "machine");
    record->patch = ReadText(document, "patch");
    if (Find(document, "patchId") != nullptr) {
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
    const Json::Value* list = Find(value, name);
    if (list == nullptr || !list->isArray()) {
      Fail(name);
      return;
    }
    for (const Json::Value& one : *list) {
      (this->*read)(one, &items->emplace_back());
      if (!IsGood()) {
        return;
      }
    }
  }

  template <typename State>
  void ReadSides(const Json::Value& value, std::optional<State>* before,
                 std::optional<State>* after,
                 void (ManifestReader::*read)(const Json::Value&, State*)) {
    if (const Json::Value* one = Find(value, "before")) {
      (this->*read)(*one, &before->emplace());
    }
    if (const Json::Value* one = Find(value, "after")) {
      (this->*read)(*one, &after->emplace());
    }
    if (!*before && !*after) {
      Fail("before");
    }
  }

  void ReadFile(const Json::Value& value, FileChange* change) {
    Expect(value, {"path"}, {"movedFrom", "before", "after"});
    change->path = ReadText(value, "path");
    SetPlace(change->path);
    if (!IsPath(change->path)) {
      Fail("path");
    }
    ReadSides(value, &change->before, &change->after, &ManifestReader::ReadEntry);
    if (Find(value, "movedFrom") != nullptr) {
      change->movedFrom = ReadText(value, "movedFrom");
      if (!IsPath(change->movedFrom) || !change->before || !change->after) {
        Fail("movedFrom");
      }
    }
  }

  void ReadEntry(const Json::Value& value, EntryState* state) {
    const auto kind = Named(kKindNames, ReadString(value, "kind"));
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
    if (Find(value, "extended") != nullptr) {
      ReadList(value, "extended", &state->extended, &ManifestReader::ReadExtended);
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
    SetPlace(change->path);
    if (!IsPath(change->hive)) {
      Fail("hive");
    }
    if (!IsKeyPath(change->path)) {
      Fail("path");
    }
    ReadSides(value, &change->before, &change->after, &ManifestReader::ReadForm);
    ReadList(value, "values", &change->values, &ManifestReader::ReadValue);
  }

  void ReadForm(const Json::Value& value, KeyState* state) {
    Expect(value, {"security"}, {"class", "isLink"});
    state->security = ReadHex(value, "security");
    if (Find(value, "class") != nullptr) {
      state->className = ReadText(value, "class");
    }
    if (Find(value, "isLink") != nullptr) {
      state->isLink = ReadFlag(value, "isLink");
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

  // Everything once, and what contains something before it.
  void ExpectOrder(const ChangeSet& changes) {
    for (std::size_t i = 1; IsGood() && i < changes.files.size(); ++i) {
      if (!ComesBefore(changes.files[i - 1].path, changes.files[i].path)) {
        FailOnOrder(changes.files[i].path);
      }
    }
    for (std::size_t i = 1; IsGood() && i < changes.keys.size(); ++i) {
      const KeyChange& left = changes.keys[i - 1];
      const KeyChange& right = changes.keys[i];
      if (!(left.hive == right.hive ? ComesBefore(left.path, right.path)
                                    : ComesBefore(left.hive, right.hive))) {
        FailOnOrder(right.path);
      }
    }
  }
};

}  // namespace

bool ParseManifest(std::string_view text, SetRecord* record, ChangeSet* changes,
                   cvn::String* problem) {
  *record = {};
  *changes = {};
  try {
    const std::optional<Json::Value> document = ReadJsonObject(text);
    if (!document) {
      *problem = u"it is no JSON object, or nests too deep";
      return false;
    }
    return ManifestReader(problem).Read(*document, record, changes);
  } catch (const std::exception&) {
    *problem = u"it is too large";
    return false;
  }
}

}  // namespace tessel
