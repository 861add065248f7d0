// Model files: one line per state, "state|next:count,next:count", lines joined by a line feed.
// Nothing is escaped, so a state holding "|" or a line feed, and a next string holding ",", ":"
// or a line feed, do not come back whole.
#pragma once

#include <string>
#include <string_view>

#include "ai/MarkovModel.h"

namespace orvane {

// The whole file into `text`; false when it does not open or cannot be read.
bool aiReadFile(const std::string& path, std::string& text);

// The file form of a model, with no line feed after the last line.
std::string aiModelToText(const AIModel& model);
// Sets the entries that `text` holds into `model`, skipping lines and pieces that do not parse.
// A count of too many digits for 32 bits throws std::out_of_range.
void aiModelFromText(std::string_view text, AIModel& model);

// False when the file does not open or the write fails.
bool aiSaveModelToPath(const AIModel& model, const std::string& path);
// False when the file does not open, and the model is then untouched; otherwise the model is
// cleared and filled, true even when nothing parsed.
bool aiLoadModelFromPath(AIModel& model, const std::string& path);

}  // namespace orvane
