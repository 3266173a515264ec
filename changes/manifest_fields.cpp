#include "changes/manifest_fields.h"

#include <cstring>
#include <optional>
#include <utility>

#include "changes/manifest_text.h"
#include "support/format.h"
#include "support/utf.h"

namespace tessel {

void ManifestFields::Fail(const char* member) {
  if (isGood_) {
    problem_ = place_.Empty() ? cvn::Format(u"'%s' isn't as it has to be", cvn::Utf8ToWide(member))
                              : cvn::Format(u"'%s' of %s isn't as it has to be",
                                            cvn::Utf8ToWide(member), place_);
  }
  isGood_ = false;
}

void ManifestFields::FailOnOrder(cvn::StringView path) {
  if (isGood_) {
    problem_ = cvn::Format(u"%s stands in it twice, or in a wrong place", path);
  }
  isGood_ = false;
}

void ManifestFields::Expect(const Json::Value& value, Names required, Names optional) {
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

const Json::Value* ManifestFields::Find(const Json::Value& value, const char* name) const {
  return isGood_ && value.isObject() ? value.find(name, name + std::strlen(name)) : nullptr;
}

std::string ManifestFields::ReadString(const Json::Value& value, const char* name) {
  const Json::Value* found = Find(value, name);
  if (found == nullptr || !found->isString()) {
    Fail(name);
    return {};
  }
  return found->asString();
}

cvn::String ManifestFields::ReadText(const Json::Value& value, const char* name) {
  const Json::Value* found = Find(value, name);
  auto text = found == nullptr ? std::nullopt : TextFromJson(*found);
  if (!text) {
    Fail(name);
  }
  return std::move(text).value_or(cvn::String());
}

std::string ManifestFields::ReadBytes(const Json::Value& value, const char* name) {
  const Json::Value* found = Find(value, name);
  auto bytes = found == nullptr ? std::nullopt : BytesFromJson(*found);
  if (!bytes) {
    Fail(name);
  }
  return std::move(bytes).value_or(std::string());
}

std::vector<std::byte> ManifestFields::ReadHex(const Json::Value& value, const char* name) {
  auto bytes = FromHex(ReadString(value, name));
  if (!bytes) {
    Fail(name);
  }
  return std::move(bytes).value_or(std::vector<std::byte>());
}

bool ManifestFields::ReadFlag(const Json::Value& value, const char* name) {
  const Json::Value* found = Find(value, name);
  if (found == nullptr || !found->isBool()) {
    Fail(name);
    return false;
  }
  return found->asBool();
}

}  // namespace tessel
