// What the XML and the JSON commands share.
#pragma once

#include "engine/command_declaration.h"
#include "engine/object_store.h"

namespace tessel {

// A command that reads or writes a file, and the handle of the document that goes with it.
struct FunctionOnFile : FunctionRetError {
  cvn::String handle;
  cvn::String path;
};

template <HandleKinds kKind>
inline constexpr AttributeDescription kOpenAttributes[] = {
    Naming(Expanded<&FunctionOnFile::path>(u"path", Presence::NonEmpty, u"The file to read."),
           Subject::File, Use::Read),
    GivenHandle<&FunctionOnFile::handle>(
        u"handle", kKind,
        u"The name to open it under. A document that the name holds already is closed."),
};

inline constexpr AttributeDescription kSavedFile =
    Naming(Expanded<&FunctionOnFile::path>(u"path", Presence::NonEmpty, u"The file to write."),
           Subject::File, Use::Change);

// A command that closes a handle, whatever it holds. An unknown one is no error.
struct FunctionCloseDocument : FunctionBase {
  void CloseHandle() { SetObject(handle, nullptr, ObjectType::XmlDocument, objects); }

  cvn::String handle;
};

inline constexpr AttributeDescription kCloseAttributes[] = {
    Handle<&FunctionCloseDocument::handle>(u"handle", Presence::NonEmpty,
                                           u"What to close; an unknown name is no failure."),
};

inline constexpr cvn::StringView kCloseNotes =
    u"All handles into a document end with it. A handle into one only loses its name.";

// The handle that a command gives an element of a document.
template <typename Class, HandleKinds kKind>
inline constexpr AttributeDescription kElementHandle = GivenHandle<&Class::destHandle>(
    u"destHandle", kKind,
    u"The name to keep it under; that of `handle` too, unless it is the document's own.");

}  // namespace tessel
