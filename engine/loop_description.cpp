#include <algorithm>

#include "engine/loop_lowering.h"

namespace tessel {
namespace {

constexpr AttributeDescription kForAttributes[] = {
    {u"var", AttributeForm::Variable, Presence::NonEmpty,
     u"Receives one piece each round. It is empty when the loop has ended."},
    {u"value", AttributeForm::Expanded, Presence::NonEmpty,
     u"The text to take apart. Its references are replaced once, before the first round."},
    {u"delim", AttributeForm::Text, Presence::NonEmpty,
     u"The characters that separate pieces, each of them by itself."},
};

constexpr CommandDescription kFor = {
    .purpose = u"Runs its body for each piece of a text.",
    .attributes = kForAttributes,
    .notes =
        u"Separators that follow each other count as one, and those at the end don't count; a "
        u"text that begins with one ends the loop before its first round. A piece longer than "
        u"10,000 characters is taken in parts of that length. A label on the loop's own element is "
        u"lost, so put one on a command in front of it.",
};

constexpr AttributeDescription kXmlForEachAttributes[] = {
    {u"handle", AttributeForm::Handle, Presence::NonEmpty,
     u"The document, or the element, that the walk starts from."},
    {u"xpath", AttributeForm::Expanded, Presence::NonEmpty,
     u"The path to the first element, from the root element or from that of the handle."},
    {u"step", AttributeForm::Expanded, Presence::NonEmpty,
     u"The path from each element to the next, such as `following-sibling::server`."},
    {u"destHandle", AttributeForm::Handle, Presence::NonEmpty,
     u"Holds the element of the round. Not the document's own name: the document would be closed."},
};

constexpr CommandDescription kXmlForEach = {
    .purpose =
        u"Runs its body for an XML element and for each one that a path leads to from there.",
    .attributes = kXmlForEachAttributes,
    .notes =
        u"It ends when there is no next element, and `error` is `3` then. Within another loop it "
        u"runs in full only the first time; each later time its body runs once at most. A label on "
        u"the loop's own element is lost. In the trace its steps go by `xmlGetElement`.",
};

constexpr AttributeDescription kJsonForEachAttributes[] = {
    {u"handle", AttributeForm::Handle, Presence::NonEmpty, u"The document, or a value in one."},
    {u"path", AttributeForm::Expanded, Presence::NonEmpty,
     u"The path to the array, from the value of the handle."},
    {u"destHandle", AttributeForm::Handle, Presence::NonEmpty,
     u"Holds the element of the round. Not the document's own name: the document would be closed."},
};

constexpr CommandDescription kJsonForEach = {
    .purpose = u"Runs its body for each element of a JSON array.",
    .attributes = kJsonForEachAttributes,
    .notes =
        u"It ends when there is no next element, and `error` is `1413` then. What is no array "
        u"gives "
        u"no round. There is one such walk at a time, so a `jsonForEach` can't stand in another "
        u"one. Within another loop it runs in full only the first time; each later time its body "
        u"runs once at most. A label on the loop's own element is lost. In the trace its steps go "
        u"by `jsonGetElement`.",
};

constexpr LoopRecord kLoops[] = {
    {u"for", LoopKind::For, kFor},
    {u"xmlForEach", LoopKind::XmlForEach, kXmlForEach},
    {u"jsonForEach", LoopKind::JsonForEach, kJsonForEach},
};

}  // namespace

std::span<const LoopRecord> AllLoops() { return kLoops; }

LoopKind LoopKindOf(const std::string& elementName) {
  const auto* found = std::ranges::find_if(
      kLoops, [&](const LoopRecord& loop) { return std::ranges::equal(elementName, loop.name); });
  return found == std::end(kLoops) ? LoopKind::None : found->kind;
}

const CommandDescription* DescriptionOf(LoopKind kind) {
  const auto* found = std::ranges::find(kLoops, kind, &LoopRecord::kind);
  return found == std::end(kLoops) ? nullptr : &found->description;
}

}  // namespace tessel
