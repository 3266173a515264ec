#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "engine/command_registry.h"
#include "support/utf.h"

namespace {

using tessel::AttributeDescription;
using tessel::AttributeForm;
using tessel::Subject;

// A path that a new command takes must not be missed by those who only read a script.
TEST(InspectTest, CommandsDeclareWhatTheyTouch) {
  constexpr cvn::StringView kFamilies[] = {u"Files",    u"Folders",  u"Registry",
                                           u"Services", u"Programs", u"The product"};
  // Texts that name nothing outside of the script.
  constexpr cvn::StringView kOthers[] = {u"data", u"displayName", u"dllTextArgument", u"password"};
  for (const tessel::CommandFamily* family : tessel::AllFamilies()) {
    const bool isOutside = std::ranges::find(kFamilies, family->title) != std::end(kFamilies);
    for (const tessel::CommandRecord& command : family->commands) {
      const auto attributes = command.description->attributes;
      const std::string name = cvn::WideToUtf8(command.name);
      const bool hasSubject = std::ranges::any_of(
          attributes, [](const auto& attribute) { return attribute.subject != Subject::None; });
      EXPECT_TRUE(!isOutside || hasSubject ||
                  command.description->fixedSubject.subject != Subject::None)
          << name;
      for (const AttributeDescription& attribute : attributes) {
        const bool isFront = std::ranges::find(attributes, attribute.name,
                                               &AttributeDescription::front) != attributes.end();
        EXPECT_TRUE(!isOutside || attribute.form != AttributeForm::Expanded || isFront ||
                    attribute.subject != Subject::None ||
                    std::ranges::find(kOthers, attribute.name) != std::end(kOthers))
            << name << ' ' << cvn::WideToUtf8(attribute.name);
        EXPECT_TRUE(attribute.front.empty() ||
                    std::ranges::find(attributes, attribute.front, &AttributeDescription::name) !=
                        attributes.end())
            << name << ' ' << cvn::WideToUtf8(attribute.name);
      }
    }
  }
}

}  // namespace
