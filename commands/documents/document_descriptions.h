// What the descriptions of the XML and the JSON commands share.
#pragma once

#include "engine/command_description.h"

namespace tessel {

inline constexpr AttributeDescription kOpenAttributes[] = {
    {u"path", AttributeForm::Expanded, Presence::NonEmpty, u"The file to read."},
    {u"handle", AttributeForm::Handle, Presence::NonEmpty,
     u"The name to open it under. A document that the name holds already is closed."},
};

inline constexpr AttributeDescription kCloseAttributes[] = {
    {u"handle", AttributeForm::Handle, Presence::NonEmpty,
     u"What to close; an unknown name is no failure."},
};

inline constexpr cvn::StringView kCloseNotes =
    u"All handles into a document end with it. A handle into one only loses its name.";

inline constexpr AttributeDescription kElementHandle = {
    u"destHandle", AttributeForm::Handle, Presence::NonEmpty,
    u"The name to keep it under; that of `handle` too, unless it is the document's own."};

}  // namespace tessel
