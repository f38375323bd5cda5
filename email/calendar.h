// SPDX-License-Identifier: MIT
// The readable text of a calendar invitation.
//
// A meeting request often arrives as text/calendar alone, or beside an HTML
// part the full reading cannot use. What a person reads in it is the event's
// title, its place and its description; the rest (times, attendees, time
// zone rules, alarms) is data for a calendar program. calendar_text gives,
// for each VEVENT in order, its SUMMARY, LOCATION and DESCRIPTION, each on
// its own line(s), and nothing else.
//
// The object is read as iCalendar content lines: a line that starts with a
// space or tab continues the one before (the fold and that one blank go),
// CR LF and LF both end a line, a property name may carry parameters
// ("SUMMARY;LANGUAGE=de:...", quoted parameter values may hold ':' and ';'),
// and names are matched without regard to case. Values are unescaped: "\n"
// and "\N" become line breaks, "\,", "\;" and "\\" the character escaped; a
// backslash before anything else stays as written. Properties of components
// nested in an event (an alarm's DESCRIPTION) are not the event's. One
// forward pass; each content line is gathered once, so the cost is linear
// in the input whatever its folding.
#pragma once

#include <string>

namespace email {

// The events' text of the iCalendar object in [begin, end), one value per
// line, each line ended by LF; empty when no event has any.
std::string calendar_text(char const* begin, char const* end);

} // namespace email
