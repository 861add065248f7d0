// Models in ordered maps for the tests: comparable, and printed by GoogleTest key by key.
#pragma once

#include <map>
#include <string>

#include "ai/MarkovModel.h"

using PlainModel = std::map<std::string, std::map<std::string, int32_t>>;

inline PlainModel plain(const orvane::AIModel& model) {
    PlainModel result;
    for (const auto& [state, successors] : model) {
        auto& row = result[state];
        for (const auto& [next, count] : successors) row[next] = count;
    }
    return result;
}

inline orvane::AIModel modelOf(const PlainModel& table) {
    orvane::AIModel model;
    for (const auto& [state, successors] : table)
        for (const auto& [next, count] : successors) model[state][next] = count;
    return model;
}
