#include "window/SailfishInput.h"

#include <Qt>
#include <cctype>

#include "window/InputState.h"

namespace orvane {

InputState inputState;

std::vector<SailfishButton> gPendingButtons;

std::string normalizeKeyCode(const std::string& text) {
    std::string name;
    name.reserve(text.size());
    for (char c : text) name += (c == '-' || c == ' ') ? '_' : char(std::tolower(static_cast<unsigned char>(c)));
    const std::string prefix = "orvane_key_";
    if (name.compare(0, prefix.size(), prefix) == 0) name.erase(0, prefix.size());
    return name;
}

void registerButton(std::vector<SailfishButton>& list, const char* keyCode, const char* displayText, int32_t x,
                    int32_t y) {
    const std::string name = normalizeKeyCode(keyCode ? keyCode : "");
    SailfishButton button{name, displayText ? displayText : "", x, y, false};
    for (SailfishButton& existing : list)
        if (existing.keyCode == name) {
            existing = button;
            return;
        }
    list.push_back(button);
}

void applyNormalizedKey(const std::string& name) {
    InputState& s = inputState;
    if (name == "return" || name == "enter") s.keyreturn = true;
    else if (name == "up") s.keyup = true;
    else if (name == "down") s.keydown = true;
    else if (name == "left") s.keyleft = true;
    else if (name == "right") s.keyright = true;
    else if (name == "minus") s.keyminus = true;
    else if (name == "back" || name == "backspace") s.keyback = true;
    else if (name == "delete" || name == "del") s.keydelete = true;
    else if (name == "space") s.keyspace = true;
    else if (name.size() == 1 && name[0] >= 'a' && name[0] <= 'z') s.letters[name[0] - 'a'] = true;
    else if (name.size() == 1 && name[0] >= '0' && name[0] <= '9') s.digits[name[0] - '0'] = true;
}

void applyQtKey(int code) {
    InputState& s = inputState;
    switch (code) {
    case Qt::Key_Up: s.keyup = true; return;
    case Qt::Key_Down: s.keydown = true; return;
    case Qt::Key_Left: s.keyleft = true; return;
    case Qt::Key_Right: s.keyright = true; return;
    case Qt::Key_Return:
    case Qt::Key_Enter: s.keyreturn = true; return;
    case Qt::Key_Backspace: s.keyback = true; return;
    case Qt::Key_Delete: s.keydelete = true; return;
    case Qt::Key_Space: s.keyspace = true; return;
    case Qt::Key_Minus: s.keyminus = true; return;
    default: break;
    }
    if (code >= Qt::Key_A && code <= Qt::Key_Z) applyNormalizedKey(std::string(1, char('a' + (code - Qt::Key_A))));
    else if (code >= Qt::Key_0 && code <= Qt::Key_9) applyNormalizedKey(std::string(1, char('0' + (code - Qt::Key_0))));
}

int qtKeyOfName(const std::string& name) {
    const std::string key = normalizeKeyCode(name);
    if (key.size() == 1 && key[0] >= 'a' && key[0] <= 'z') return Qt::Key_A + (key[0] - 'a');
    if (key.size() == 1 && key[0] >= '0' && key[0] <= '9') return Qt::Key_0 + (key[0] - '0');
    static const std::pair<const char*, int> named[] = {
        {"up", Qt::Key_Up},         {"down", Qt::Key_Down},          {"left", Qt::Key_Left},
        {"right", Qt::Key_Right},   {"return", Qt::Key_Return},      {"enter", Qt::Key_Return},
        {"back", Qt::Key_Backspace}, {"backspace", Qt::Key_Backspace}, {"delete", Qt::Key_Delete},
        {"del", Qt::Key_Delete},    {"space", Qt::Key_Space},        {"minus", Qt::Key_Minus}};
    for (const auto& [text, code] : named)
        if (key == text) return code;
    return 0;
}

void resetKeyState() {
    InputState& s = inputState;
    s.keyreturn = s.keyup = s.keydown = s.keyleft = s.keyright = false;
    for (bool& key : s.letters) key = false;
    for (bool& key : s.digits) key = false;
    s.keyminus = s.keyback = s.keydelete = s.keyspace = false;
}

}  // namespace orvane
