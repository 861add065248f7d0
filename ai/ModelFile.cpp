#include "ai/ModelFile.h"

#include <fstream>

namespace orvane {

bool aiReadFile(const std::string& path, std::string& text) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    std::string data;
    char chunk[65536];
    while (in.read(chunk, sizeof chunk) || in.gcount() > 0) data.append(chunk, size_t(in.gcount()));
    // A directory opens but its first read fails, which leaves the stream bad.
    if (in.bad()) return false;
    text = std::move(data);
    return true;
}

std::string aiModelToText(const AIModel& model) {
    std::string text;
    bool firstLine = true;
    for (const auto& [state, successors] : model) {
        if (!firstLine) text += '\n';
        firstLine = false;
        text += state;
        text += '|';
        bool firstEntry = true;
        for (const auto& [next, count] : successors) {
            if (!firstEntry) text += ',';
            firstEntry = false;
            text += next;
            text += ':';
            text += std::to_string(count);
        }
    }
    return text;
}

namespace {

bool allDigits(std::string_view text) {
    for (char c : text)
        if (c < '0' || c > '9') return false;
    return !text.empty();
}

void parseLine(std::string_view line, AIModel& model) {
    const size_t bar = line.find('|');
    if (bar == std::string_view::npos || bar == 0 || bar + 1 == line.size()) return;
    const std::string_view state = line.substr(0, bar);
    std::string_view rest = line.substr(bar + 1);
    // Found once per line, on its first good entry: a long state is hashed once, not per entry.
    AISuccessors* row = nullptr;
    while (true) {
        const size_t comma = rest.find(',');
        const std::string_view piece = rest.substr(0, comma);
        const size_t colon = piece.find(':');
        if (!piece.empty() && colon != std::string_view::npos && colon != 0 && colon + 1 != piece.size()) {
            const std::string_view countText = piece.substr(colon + 1);
            if (allDigits(countText)) {
                // stoi's range failure is the documented answer to a count beyond 32 bits.
                const int32_t count = std::stoi(std::string(countText));
                if (!row) {
                    auto found = model.find(state);
                    if (found == model.end()) found = model.emplace(std::string(state), AISuccessors{}).first;
                    row = &found->second;
                }
                row->insert_or_assign(std::string(piece.substr(0, colon)), count);
            }
        }
        if (comma == std::string_view::npos) break;
        rest.remove_prefix(comma + 1);
    }
}

}  // namespace

void aiModelFromText(std::string_view text, AIModel& model) {
    while (!text.empty()) {
        const size_t end = text.find('\n');
        parseLine(text.substr(0, end), model);
        if (end == std::string_view::npos) break;
        text.remove_prefix(end + 1);
    }
}

bool aiSaveModelToPath(const AIModel& model, const std::string& path) {
    const std::string text = aiModelToText(model);
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out) return false;
    out.write(text.data(), std::streamsize(text.size()));
    out.close();
    return bool(out);
}

bool aiLoadModelFromPath(AIModel& model, const std::string& path) {
    std::string text;
    if (!aiReadFile(path, text)) return false;
    model.clear();
    aiModelFromText(text, model);
    return true;
}

}  // namespace orvane
