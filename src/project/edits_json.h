#pragma once

#include <string>
#include <string_view>

#include "base/json.h"
#include "edits.h"

namespace quillo::project {

// The recipe's JSON form ("edits.json" and the agents' `edits` object). Absent optionals are
// left out; unknown keys are ignored on reading; a missing required key, a wrong type or an
// unknown raw value fails the whole recipe.
Json toJson(const Edits& edits);
Result<Edits> editsFromJson(const Json& json);

// Text form of a whole "edits.json": pretty-printed with sorted keys.
std::string encodeEdits(const Edits& edits);
Result<Edits> decodeEdits(std::string_view text);

// Member records, also used on their own by agent tools.
Json toJson(const ZoomSection& zoom);
Json toJson(const TimeSegment& segment);
Json toJson(const Redaction& redaction);
Json toJson(const CaptionStyle& captions);

}  // namespace quillo::project
