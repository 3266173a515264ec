// What the descriptions of commands and loops promise, against what the code accepts.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "engine/command_registry.h"
#include "engine/loop_lowering.h"
#include "support/utf.h"

namespace tessel {
namespace {

using Attributes = cvn::Map<cvn::String, cvn::String>;

// A command or a loop, with the question whether it loads with some attributes.
struct Subject {
  cvn::String name;
  const CommandDescription* description;
  FunctionKind kind;
  bool isLoop;

  bool Accepts(const Attributes& attributes) const;
};

bool IsCommandAccepted(const cvn::String& name, const Attributes& attributes) {
  const CommandRecord* record = FindCommand(name);
  if (record == nullptr) {
    return false;
  }
  const std::unique_ptr<FunctionBase> command = record->factory();
  for (const auto& [key, value] : attributes) {
    command->attributes.Add(key, value);
  }
  return command->Parse(*record->description);
}

// Of a loop that is too short of something to be rewritten there is nothing to accept.
bool IsLoopAccepted(const cvn::String& name, const Attributes& attributes) {
  TiXmlElement parent("script");
  auto* loop = new TiXmlElement(cvn::WideToUtf8(name));
  for (const auto& [key, value] : attributes) {
    loop->SetAttribute(cvn::WideToUtf8(key), cvn::WideToUtf8(value));
  }
  parent.LinkEndChild(loop);
  if (LowerLoop(LoopKindOf(loop->ValueStr()), &parent, loop) == nullptr) {
    return false;
  }
  const TiXmlElement* element = parent.FirstChildElement();
  bool accepted = true;
  for (; element != nullptr; element = element->NextSiblingElement()) {
    Attributes generated;
    const TiXmlAttribute* at = element->FirstAttribute();
    for (; at != nullptr; at = at->Next()) {
      generated[cvn::Utf8ToWide(at->NameTStr())] = cvn::Utf8ToWide(at->ValueStr());
    }
    accepted = accepted && IsCommandAccepted(cvn::Utf8ToWide(element->ValueStr()), generated);
  }
  return accepted;
}

bool Subject::Accepts(const Attributes& attributes) const {
  return isLoop ? IsLoopAccepted(name, attributes) : IsCommandAccepted(name, attributes);
}

class Descriptions : public ::testing::Test {
 protected:
  Descriptions() {
    for (const auto& [name, record] : AllCommands()) {
      subjects_.push_back({name, record.description, record.kind, false});
    }
    for (const LoopRecord& loop : AllLoops()) {
      subjects_.push_back({loop.name, &loop.description, FunctionKind::Plain, true});
    }
  }

  // Calls check(subject, attribute) for each attribute of each subject.
  template <typename Check>
  void ForEachAttribute(Check check) const {
    for (const Subject& subject : subjects_) {
      for (const AttributeDescription& attribute : subject.description->attributes) {
        SCOPED_TRACE(cvn::WideToUtf8(subject.name) + ", " + cvn::WideToUtf8(attribute.name));
        check(subject, attribute);
      }
    }
  }

  static cvn::StringView SoundValue(const AttributeDescription& attribute) {
    return attribute.choices.empty() ? u"1" : attribute.choices.front();
  }

  // All attributes, or only those that have to be there, with values that nothing is wrong with.
  static Attributes SoundAttributes(const Subject& subject, bool all) {
    Attributes attributes;
    for (const AttributeDescription& attribute : subject.description->attributes) {
      if (all || attribute.presence != Presence::Optional) {
        attributes[attribute.name] = SoundValue(attribute);
      }
    }
    return attributes;
  }

  static bool AcceptsValue(const Subject& subject, const AttributeDescription& attribute,
                           cvn::StringView value) {
    Attributes attributes = SoundAttributes(subject, true);
    attributes[attribute.name] = value;
    return subject.Accepts(attributes);
  }

  cvn::List<Subject> subjects_;
};

bool IsStrictChoice(const AttributeDescription& attribute) {
  return attribute.form == AttributeForm::Choice && attribute.refusesOthers;
}

TEST_F(Descriptions, TellWhichAttributesHaveToBeThere) {
  for (const Subject& subject : subjects_) {
    SCOPED_TRACE(cvn::WideToUtf8(subject.name));
    EXPECT_TRUE(subject.Accepts(SoundAttributes(subject, true)));
    EXPECT_TRUE(subject.Accepts(SoundAttributes(subject, false)));
  }
  ForEachAttribute([](const Subject& subject, const AttributeDescription& attribute) {
    Attributes attributes = SoundAttributes(subject, true);
    attributes.erase(cvn::String(attribute.name));
    EXPECT_EQ(subject.Accepts(attributes), attribute.presence == Presence::Optional) << "missing";
    EXPECT_EQ(AcceptsValue(subject, attribute, u""),
              attribute.presence != Presence::NonEmpty && !IsStrictChoice(attribute))
        << "empty";
  });
}

TEST_F(Descriptions, TellWhichValuesAreRefused) {
  ForEachAttribute([](const Subject& subject, const AttributeDescription& attribute) {
    for (const cvn::StringView word : attribute.choices) {
      EXPECT_TRUE(AcceptsValue(subject, attribute, word)) << cvn::WideToUtf8(word);
    }
    EXPECT_EQ(AcceptsValue(subject, attribute, u"no such word"), !IsStrictChoice(attribute));
    EXPECT_EQ(AcceptsValue(subject, attribute, u"(malformed"),
              attribute.form != AttributeForm::Pattern && !IsStrictChoice(attribute));
  });
}

TEST_F(Descriptions, AreWhole) {
  for (const Subject& subject : subjects_) {
    SCOPED_TRACE(cvn::WideToUtf8(subject.name));
    EXPECT_TRUE(subject.description->purpose.ends_with(u'.'));
    EXPECT_TRUE(subject.description->failures.empty() || subject.kind == FunctionKind::ErrorResult);
    std::set<cvn::StringView> texts;
    for (const FailureDescription& failure : subject.description->failures) {
      EXPECT_TRUE(texts.insert(failure.text).second) << cvn::WideToUtf8(failure.text);
      EXPECT_FALSE(failure.meaning.empty() || failure.meaning.ends_with(u'.'));
    }
  }
  ForEachAttribute([](const Subject& subject, const AttributeDescription& attribute) {
    EXPECT_EQ(std::ranges::count(subject.description->attributes, attribute.name,
                                 &AttributeDescription::name),
              1);
    EXPECT_TRUE(attribute.meaning.ends_with(u'.'));
    EXPECT_EQ(attribute.form == AttributeForm::Choice, !attribute.choices.empty());
    EXPECT_TRUE(attribute.presence == Presence::Optional || attribute.fallback.empty());
  });
}

}  // namespace
}  // namespace tessel
