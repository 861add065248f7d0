// The outcome of a run of OrvaneRuby: a run never raises, its failure stands in here.
#pragma once

#include <string>

#include "ruby/RubyValue.h"

namespace orvane::ruby {

struct RubyResult {
    bool success = false;
    RubyValue value;
    // The failure's text, empty on success.
    std::string error;
};

}  // namespace orvane::ruby
