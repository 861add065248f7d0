// What the model tests share: models in ordered maps, comparable and printed by GoogleTest key by
// key, and a fresh folder under the system's temporary directory, removed with everything in it.
#pragma once

#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <string>

#include "ai/MarkovModel.h"

using PlainModel = std::map<std::string, std::map<std::string, int32_t>>;

inline PlainModel plain(const orvane::AIModel& model) {
    PlainModel result;
    for (const auto& [state, successors] : model) {
        auto& row = result[state];  // an empty row shows too
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

struct TempFolder {
    std::filesystem::path path =
        std::filesystem::temp_directory_path() / ("ot-ai-" + std::to_string(std::random_device{}()));
    TempFolder() { std::filesystem::create_directories(path); }
    ~TempFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    std::string file(const std::string& name) const { return (path / name).string(); }
    std::string write(const std::string& name, const std::string& content) const {
        std::ofstream(file(name), std::ios::binary) << content;
        return file(name);
    }
    std::string read(const std::string& name) const {
        std::ifstream in(file(name), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }
};
