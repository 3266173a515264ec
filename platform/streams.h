// The standard streams, written as wide text.
#pragma once

#include "support/string.h"

namespace platform::streams {

enum class Output { Out, Error };

// Sets standard output, standard input and standard error, in this order, to UTF-8 text, wide text
// and UTF-8 text, as _setmode with 0x40000, 0x10000 and 0x40000. On Linux the streams are UTF-8 as
// they are.
void SetTextModes();

// Writes `text` and a line end (CR LF on Windows, LF on Linux) and flushes. A stream that is closed
// or fails swallows it, or a part; false then.
bool WriteLine(Output stream, cvn::StringView text);

// Returns when the stream has room for what is written next. False when the program is asked to
// stop meanwhile (stop_request.h), or when nobody can read it any more: the other end of the pipe
// is closed. On Windows a pipe tells that with the first write that fails, and has always room.
bool AwaitRoom(Output stream);

// From here on what this process, and those that it starts, write to standard output goes to
// standard error.
void SendOutputToError();

// Whether somebody reads it as it is written: it leads to a terminal, or to a console.
bool IsTerminal(Output stream);

// Puts a text in the place of the terminal's last line, which stays unfinished until the next call
// or line; an empty one clears it.
void WriteStatus(Output stream, cvn::StringView text);

// Reads a line of the user's from the terminal, without its end. False when standard input is none,
// or is at its end.
bool ReadAnswer(cvn::String* line);

}  // namespace platform::streams
