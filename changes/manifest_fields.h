// The members of a manifest's JSON, each with the type that it has to have.
#pragma once

#include <json/value.h>

#include <charconv>
#include <cstddef>
#include <initializer_list>
#include <string>
#include <vector>

#include "support/string.h"

namespace tessel {

// The first fault is kept, and from then on nothing that is read means anything. No value makes the
// library throw, whatever its type.
class ManifestFields {
 public:
  using Names = std::initializer_list<const char*>;

  // `*problem` gets a sentence that says what is wrong.
  explicit ManifestFields(cvn::String* problem) : problem_(*problem) {}

  bool IsGood() const { return isGood_; }
  // The path of the change that is read from now on, for that sentence.
  void SetPlace(const cvn::String& place) { place_ = place; }
  void Fail(const char* member);
  void FailOnOrder(cvn::StringView path);

  // An object that has all of these members and no others but optional ones.
  void Expect(const Json::Value& value, Names required, Names optional);
  // Null when the value has none of that name.
  const Json::Value* Find(const Json::Value& value, const char* name) const;

  template <typename Number>
  Number ReadNumber(const Json::Value& value, const char* name) {
    const Json::Value* found = Find(value, name);
    if (found == nullptr || !found->isIntegral() || !found->is<Number>()) {
      Fail(name);
      return 0;
    }
    return found->as<Number>();
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

  std::string ReadString(const Json::Value& value, const char* name);
  cvn::String ReadText(const Json::Value& value, const char* name);
  std::string ReadBytes(const Json::Value& value, const char* name);
  std::vector<std::byte> ReadHex(const Json::Value& value, const char* name);
  bool ReadFlag(const Json::Value& value, const char* name);

 private:
  cvn::String& problem_;
  cvn::String place_;
  bool isGood_ = true;
};

}  // namespace tessel
