// What a page tells of a run: bodies of its sections, in HTML.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "tools/tlx/rehearsal.h"
#include "tools/tlx/script_flow.h"

namespace tlx {

// The lines of a text, as the columns and rows of a script are counted: they end with CR LF, or one
// of the two alone.
cvn::List<std::string_view> LinesOf(std::string_view text);

// How many of a script's lines a page has.
std::size_t CountShown(const cvn::List<std::string_view>& lines);

// "line 12", as a link where the page has the line.
std::string LineLink(std::size_t line, std::size_t linesOnPage);

// Which commands failed, handled or not.
std::string FailuresBody(const Rehearsal& rehearsal, std::size_t linesOnPage);
// The picture, and what was never entered. `flow` is the script's, or null when that can't be read;
// its commands are those of `visits`.
std::string FlowBody(const Rehearsal& rehearsal, const ScriptFlow* flow, std::size_t linesOnPage);
std::string ScriptBody(const Rehearsal& rehearsal, const cvn::List<std::string_view>& lines,
                       std::size_t linesOnPage);
std::string BeyondBody(const Rehearsal& rehearsal, std::size_t linesOnPage);
std::string EventsBody(const Rehearsal& rehearsal);
std::string TraceBody(const Rehearsal& rehearsal);

}  // namespace tlx
