// The loops of the language, which are syntax only: each is rewritten into plain commands before it
// is compiled.
#pragma once

#include <tinyxml.h>

#include <span>
#include <string>

#include "engine/command_description.h"
#include "engine/run_observer.h"
#include "support/string.h"

namespace tessel {

enum class LoopKind { None, For, XmlForEach, JsonForEach };

struct LoopRecord {
  cvn::StringView name;
  LoopKind kind;
  CommandDescription description;
  // As LowerLoop, but the loop's element stays, behind what stands for it.
  TiXmlElement* (*lower)(TiXmlElement* parent, TiXmlElement* loop);
};

std::span<const LoopRecord> AllLoops();

// Which loop an element of this name is.
LoopKind LoopKindOf(const std::string& elementName);

// What a loop is to those who write scripts; null for None.
const CommandDescription* DescriptionOf(LoopKind kind);

// Puts generated commands and copies of the body's elements in the place of `loop`, a child of
// `parent`, and gives the first of them. Null, and no change, when the loop lacks an attribute that
// it needs.
TiXmlElement* LowerLoop(LoopKind kind, TiXmlElement* parent, TiXmlElement* loop);

// Where an element of the script stands, also one that LowerLoop made or copied.
ScriptPlace PlaceOf(const TiXmlElement& element);

}  // namespace tessel
