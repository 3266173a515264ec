// What there is to say of the attributes of a command or loop.
#pragma once

#include <tinyxml.h>

#include "engine/command_description.h"
#include "engine/function_base.h"
#include "tools/tlx/findings.h"

namespace tlx {

// The name of a command's element.
cvn::String NameOf(const TiXmlElement& element);

// The attribute of that name; null when the element has none.
const TiXmlAttribute* FindAttribute(const TiXmlElement& element, const char* name);

// The attribute, or the element when it has none of that name.
const TiXmlBase& PlaceOf(const TiXmlElement& element, const char* name);

// Loads the attributes that `element` has into `command`, which is null for a loop. Adds, as
// errors, why the engine refuses them, and as warnings, what it accepts without the effect that the
// attributes seem to have.
void JudgeAttributes(const TiXmlElement& element, const tessel::CommandDescription& description,
                     const tessel::AttributeMap& attributes, tessel::FunctionBase* command,
                     Findings* findings);

// Shows a value that holds no reference to `judge`, which may be null, and warns of what is wrong.
void JudgeLiteral(const TiXmlBase& where, cvn::StringView name, const cvn::String& value,
                  tessel::LiteralJudge judge, Findings* findings);

// Warns of a `value` that isn't a decimal number, or is one out of range; `counted` is what the
// engine reads.
void WarnOfNumber(const TiXmlBase& where, cvn::StringView name, cvn::StringView value,
                  std::int64_t counted, Findings* findings);

}  // namespace tlx
