#include "tools/tlx/header_lint.h"

#include <algorithm>

#include "engine/patch_expiry.h"
#include "engine/xml_text.h"
#include "platform/clock.h"
#include "support/format.h"
#include "support/numbers.h"
#include "tools/tlx/attribute_lint.h"

namespace tlx {
namespace {

using tessel::XmlAttributeText;

// Judges the header, which says whether the patch may run at all.
class HeaderLint {
 public:
  HeaderLint(const TiXmlElement& root, Findings* findings) : root_(root), findings_(findings) {}

  void Check() {
    const TiXmlElement* header = root_.FirstChildElement("header");
    if (header == nullptr) {
      findings_->Warn(root_,
                      u"the patch has expired, and no gate lets it through: there is no 'header'");
      return;
    }
    const TiXmlElement* property = header->FirstChildElement("property");
    for (; property != nullptr; property = property->NextSiblingElement("property")) {
      CheckProperty(*property);
    }
    CheckType(*header);
    CheckDates(*header);
  }

 private:
  void CheckProperty(const TiXmlElement& property) {
    const cvn::String name = XmlAttributeText(property, "name");
    const cvn::String value = XmlAttributeText(property, "value");
    const TiXmlBase& where = PlaceOf(property, "value");
    if (name == u"created") {
      created_ = &property;
      WarnOfNumber(where, name, value, cvn::ReadInt64(value), findings_);
    } else if (name == u"expires") {
      WarnOfNumber(where, name, value, cvn::ReadInt32(value), findings_);
    } else if (name == u"patchType") {
      type_ = &property;
    } else {
      constexpr cvn::StringView kNames[] = {u"id", u"patchType", u"tags", u"created", u"expires"};
      const auto* meant = std::ranges::find_if(
          kNames, [&](cvn::StringView known) { return cvn::EqualNoCase(known, name); });
      if (meant != std::end(kNames) && *meant != name) {
        findings_->Warn(
            PlaceOf(property, "name"),
            cvn::Format(u"nobody reads a property '%s'; did you mean '%s'?", name, *meant));
      }
    }
  }

  void CheckType(const TiXmlElement& header) {
    const cvn::String type = type_ == nullptr ? cvn::String() : XmlAttributeText(*type_, "value");
    if (type != u"update" && type != u"external") {
      const TiXmlBase& where = type_ == nullptr ? header : PlaceOf(*type_, "value");
      findings_->Warn(where, cvn::Format(u"the patch's type is '%s', neither 'external' nor "
                                         u"'update': no gate lets it through",
                                         type));
    }
  }

  void CheckDates(const TiXmlElement& header) {
    const tessel::ExpiryResult result =
        tessel::CheckPatchExpiry(&header, platform::clock::NowTicks());
    if (result.valid) {
      return;
    }
    const TiXmlBase& where = created_ == nullptr ? header : PlaceOf(*created_, "value");
    if (created_ == nullptr) {
      findings_->Warn(where, u"the patch has expired: 'created' is missing and counts as 1970");
    } else if (result.expiresAt == 0) {
      findings_->Warn(where, u"the patch is refused until its 'created', which is in the future");
    } else {
      const platform::clock::LocalTime end = platform::clock::ToLocalTime(result.expiresAt);
      findings_->Warn(where, cvn::Format(u"the patch has expired on %04d-%02d-%02d", end.year,
                                         end.month, end.day));
    }
  }

  const TiXmlElement& root_;
  Findings* findings_;
  const TiXmlElement* created_ = nullptr;  // the last of each counts
  const TiXmlElement* type_ = nullptr;
};

}  // namespace

void LintHeader(const TiXmlElement& root, Findings* findings) {
  HeaderLint(root, findings).Check();
}

}  // namespace tlx
