// What the declarations of commands and loops have to hold, and no compiler sees.
#include <gtest/gtest.h>

#include <set>

#include "engine/command_registry.h"
#include "engine/loop_lowering.h"
#include "support/utf.h"

namespace tessel {
namespace {

void ExpectWhole(cvn::StringView name, const CommandDescription& description, FunctionKind kind) {
  SCOPED_TRACE(cvn::WideToUtf8(name));
  EXPECT_TRUE(description.purpose.ends_with(u'.'));
  EXPECT_TRUE(description.failures.empty() || kind == FunctionKind::ErrorResult);
  std::set<cvn::StringView> texts;
  for (const FailureDescription& failure : description.failures) {
    EXPECT_TRUE(texts.insert(failure.text).second) << cvn::WideToUtf8(failure.text);
    EXPECT_FALSE(failure.meaning.empty() || failure.meaning.ends_with(u'.'));
  }
  std::set<cvn::StringView> names;
  for (const AttributeDescription& attribute : description.attributes) {
    EXPECT_TRUE(names.insert(attribute.name).second) << cvn::WideToUtf8(attribute.name);
    EXPECT_TRUE(attribute.meaning.ends_with(u'.'));
    EXPECT_EQ(attribute.form == AttributeForm::Choice, !attribute.choices.empty());
    EXPECT_TRUE(attribute.presence == Presence::Optional || attribute.fallback.empty());
  }
}

TEST(Descriptions, AreWhole) {
  for (const auto& [name, record] : AllCommands()) {
    ExpectWhole(name, *record.description, record.kind);
  }
  for (const LoopRecord& loop : AllLoops()) {
    ExpectWhole(loop.name, loop.description, FunctionKind::Plain);
  }
}

}  // namespace
}  // namespace tessel
