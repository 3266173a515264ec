#include "tools/tlx/attribute_lint.h"

#include <algorithm>

#include "engine/variable_store.h"
#include "support/format.h"
#include "support/numbers.h"
#include "support/utf.h"
#include "tools/tlx/references.h"
#include "tools/tlx/spelling.h"

namespace tlx {
namespace {

using tessel::AttributeDescription;
using tessel::AttributeFault;
using tessel::AttributeForm;
using tessel::AttributeMap;
using tessel::CommandDescription;
using tessel::FunctionBase;

bool IsChoice(const AttributeDescription& attribute, cvn::StringView value) {
  return std::ranges::find(attribute.choices, value) != attribute.choices.end();
}

// Where the value of an attribute stands, which may be in a child `data`.
const TiXmlBase& PlaceOf(const TiXmlElement& element, const AttributeDescription& attribute) {
  const std::string name = cvn::WideToUtf8(attribute.name);
  if (const TiXmlAttribute* found = FindAttribute(element, name.c_str())) {
    return *found;
  }
  const TiXmlElement* child = element.FirstChildElement("data");
  return name == "data" && child != nullptr ? *child : element;
}

void TellFault(const TiXmlElement& element, const AttributeDescription& attribute,
               const cvn::String& value, AttributeFault fault, Findings* findings) {
  cvn::String text;
  if (fault == AttributeFault::Missing) {
    text = cvn::Format(u"attribute '%s' is missing", attribute.name);
  } else if (fault == AttributeFault::Empty) {
    text = cvn::Format(u"attribute '%s' is empty", attribute.name);
  } else if (attribute.form == AttributeForm::Choice) {
    text = cvn::Format(u"attribute '%s' is '%s', and must be one of %s", attribute.name, value,
                       QuotedList(attribute.choices));
  } else {
    text = cvn::Format(u"attribute '%s' is no valid pattern: '%s'", attribute.name, value);
  }
  findings->Error(PlaceOf(element, attribute), cvn::Format(u"'%s': %s", NameOf(element), text));
}

// What a value that holds a reference, or is no value at all, counts as; empty when it is a text.
cvn::String CountsAs(const AttributeDescription& attribute, const cvn::String& value) {
  switch (attribute.form) {
    case AttributeForm::Number:
      return cvn::Format(u"; it counts as %d", cvn::ReadInt32(value));
    case AttributeForm::Flag:
      return u"; it counts as false";
    case AttributeForm::Choice:
      return cvn::Format(u"; it counts as '%s'", attribute.othersCountAs);
    default:
      return {};
  }
}

// False when there is nothing to say of references. The target of a jump is left to those who know
// the labels.
bool WarnOfReference(const TiXmlBase& where, const AttributeDescription& attribute,
                     const cvn::String& value, Findings* findings) {
  const bool isVariable = attribute.form == AttributeForm::Variable;
  const cvn::StringView reference =
      FindReference(isVariable ? ElementName(value).name : value.AsView());
  if (attribute.form == AttributeForm::Expanded || attribute.form == AttributeForm::Label ||
      reference.empty()) {
    return false;
  }
  findings->Warn(where, cvn::Format(u"'%s' is not replaced: attribute '%s' is used as written%s",
                                    reference, attribute.name, CountsAs(attribute, value)));
  return true;
}

void WarnOfValue(const TiXmlBase& where, const AttributeDescription& attribute,
                 const cvn::String& value, Findings* findings) {
  if (WarnOfReference(where, attribute, value, findings)) {
    return;
  }
  if (attribute.form == AttributeForm::Number) {
    WarnOfNumber(where, attribute.name, value, cvn::ReadInt32(value), findings);
  }
  constexpr cvn::StringView kFlags[] = {u"true", u"1", u"false", u"0"};
  if (attribute.form == AttributeForm::Flag &&
      std::ranges::find(kFlags, value.AsView()) == std::end(kFlags)) {
    findings->Warn(where, cvn::Format(u"attribute '%s' is '%s', neither 'true' nor 'false'%s",
                                      attribute.name, value, CountsAs(attribute, value)));
  }
  if (attribute.form == AttributeForm::Choice && !IsChoice(attribute, value) &&
      value != attribute.fallback) {
    findings->Warn(where,
                   cvn::Format(u"attribute '%s' is '%s', none of %s%s", attribute.name, value,
                               QuotedList(attribute.choices), CountsAs(attribute, value)));
  }
}

}  // namespace

void JudgeLiteral(const TiXmlBase& where, cvn::StringView name, const cvn::String& value,
                  tessel::LiteralJudge judge, Findings* findings) {
  constexpr std::size_t kMostShown = 100;
  if (judge == nullptr || !FindReference(value).empty()) {
    return;
  }
  tessel::ObjectStore arrays;
  tessel::VariableStore none(&arrays);
  const cvn::String literal = tessel::ExpandVariables(value, &none);
  const cvn::StringView shown = literal;
  if (const cvn::StringView fault = judge(literal); !fault.empty()) {
    findings->Warn(
        where, cvn::Format(u"attribute '%s' is '%s'%s, which %s", name, shown.substr(0, kMostShown),
                           shown.size() > kMostShown ? u"..." : u"", fault));
  }
}

namespace {

void WarnOfUnknown(const TiXmlElement& element, const CommandDescription& description,
                   Findings* findings) {
  cvn::List<cvn::StringView> known = {u"id"};
  for (const AttributeDescription& attribute : description.attributes) {
    known.push_back(attribute.name);
  }
  const TiXmlAttribute* at = element.FirstAttribute();
  for (; at != nullptr; at = at->Next()) {
    const cvn::String name = cvn::Utf8ToWide(at->NameTStr());
    // Names that begin so belong to XML itself.
    if (name.AsView().starts_with(u"xml") ||
        std::ranges::find(known, name.AsView()) != known.end()) {
      continue;
    }
    findings->Warn(*at, cvn::Format(u"'%s' has no attribute '%s'%s", NameOf(element), name,
                                    DidYouMean(name, known)));
  }
}

}  // namespace

cvn::String NameOf(const TiXmlElement& element) { return cvn::Utf8ToWide(element.ValueStr()); }

const TiXmlAttribute* FindAttribute(const TiXmlElement& element, const char* name) {
  const TiXmlAttribute* at = element.FirstAttribute();
  while (at != nullptr && at->NameTStr() != name) {
    at = at->Next();
  }
  return at;
}

const TiXmlBase& PlaceOf(const TiXmlElement& element, const char* name) {
  const TiXmlAttribute* attribute = FindAttribute(element, name);
  return attribute == nullptr ? static_cast<const TiXmlBase&>(element) : *attribute;
}

void JudgeAttributes(const TiXmlElement& element, const CommandDescription& description,
                     const AttributeMap& attributes, FunctionBase* command, Findings* findings) {
  for (const AttributeDescription& attribute : description.attributes) {
    const AttributeFault fault = LoadAttribute(attribute, attributes, command);
    const cvn::String* value = attributes.Find(attribute.name);
    if (fault != AttributeFault::None) {
      TellFault(element, attribute, value == nullptr ? cvn::String() : *value, fault, findings);
    } else if (value != nullptr) {
      WarnOfValue(PlaceOf(element, attribute), attribute, *value, findings);
      JudgeLiteral(PlaceOf(element, attribute), attribute.name, *value, attribute.judge, findings);
    }
  }
  WarnOfUnknown(element, description, findings);
}

void WarnOfNumber(const TiXmlBase& where, cvn::StringView name, cvn::StringView value,
                  std::int64_t counted, Findings* findings) {
  constexpr cvn::StringView kBlanks = u" \t\r\n";
  const std::size_t start = std::min(value.find_first_not_of(kBlanks), value.size());
  cvn::StringView digits = value.substr(start, value.find_last_not_of(kBlanks) + 1 - start);
  if (digits.starts_with(u'-') || digits.starts_with(u'+')) {
    digits.remove_prefix(1);
  }
  if (!cvn::IsAllDigits(digits) || cvn::ReadInt64(value) != counted) {
    findings->Warn(where, cvn::Format(u"'%s' is '%s', which counts as %d", name, value, counted));
  }
}

}  // namespace tlx
