// What there is to say of the attributes of a command or loop.
#pragma once

#include <tinyxml.h>

#include "engine/command_description.h"
#include "engine/function_base.h"
#include "tools/tlx/findings.h"

namespace tlx {

// The attribute of that name; null when the element has none.
const TiXmlAttribute* FindAttribute(const TiXmlElement& element, const char* name);

// The attribute, or the element when it has none of that name.
const TiXmlBase& PlaceOf(const TiXmlElement& element, const char* name);

// Adds, as errors, why the engine refuses `element`, whose attributes it has as `attributes`. A
// refusal that the description (null for none) doesn't explain is told all the same.
void ExplainRefusal(const TiXmlElement& element, const tessel::AttributeMap& attributes,
                    const tessel::CommandDescription* description, Findings* findings);

// Adds, as warnings, what the engine accepts without the effect that the attributes seem to have.
void WarnOfAttributes(const TiXmlElement& element, const tessel::AttributeMap& attributes,
                      const tessel::CommandDescription& description, Findings* findings);

// Warns of a `value` that isn't a decimal number, or is one out of range; `counted` is what the
// engine reads.
void WarnOfNumber(const TiXmlBase& where, cvn::StringView name, cvn::StringView value,
                  std::int64_t counted, Findings* findings);

// A reference, "%name%", in the text; empty when there is none.
cvn::StringView FindReference(cvn::StringView text);

}  // namespace tlx
