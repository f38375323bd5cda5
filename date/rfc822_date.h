// RFC 822 dates.
//
// PLACEHOLDER until the tolerant date parser lands: reads nothing, so no date
// is stored. The constructor and canonical_format() signatures are final.
#pragma once

#include <string>

#include "error/handler.h"

namespace date {

class rfc822_date_t {
public:
  rfc822_date_t(char const* /*first*/, char const* /*last*/, quern::error::handler_t* /*problems*/) {}
  // The instant in UTC as "YYYY-MM-DD hh:mm:ss", or "" when unparsed.
  std::string canonical_format() const { return {}; }
};

} // namespace date
