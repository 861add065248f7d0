// Pattern translation, the process-wide cache of compiled regular expressions, and the match walks.
#include "script/LuaPatterns.h"

#include <pthread.h>

#include <exception>
#include <memory>
#include <stdexcept>
#include <unordered_map>

namespace orvane {

namespace {

std::unordered_map<std::string, std::unique_ptr<CompiledGsubPattern>>& patternCache() {
    // Never destroyed: natives may still run from static destructors of other objects.
    static auto* cache = new std::unordered_map<std::string, std::unique_ptr<CompiledGsubPattern>>();
    return *cache;
}

uint64_t compileCount = 0;

bool isAsciiLetter(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }
bool isAsciiDigit(char c) { return c >= '0' && c <= '9'; }

// The class escapes: outside a bracket class, inside one.
bool classTranslation(char k, const char*& outside, const char*& inside) {
    switch (k) {
    case 'a': outside = "[A-Za-z]"; inside = "A-Za-z"; return true;
    case 'A': outside = "[^A-Za-z]"; inside = "^A-Za-z"; return true;
    case 'd': outside = inside = "\\d"; return true;
    case 'D': outside = inside = "\\D"; return true;
    case 'l': outside = "[a-z]"; inside = "a-z"; return true;
    case 'L': outside = "[^a-z]"; inside = "^a-z"; return true;
    case 'p': outside = "[!-/:-@\\[-`\\{-~]"; inside = "!-/:-@\\[-`\\{-~"; return true;
    case 'P': outside = "[^!-/:-@\\[-`\\{-~]"; inside = "^!-/:-@\\[-`\\{-~"; return true;
    case 's': outside = inside = "\\s"; return true;
    case 'S': outside = inside = "\\S"; return true;
    case 'u': outside = "[A-Z]"; inside = "A-Z"; return true;
    case 'U': outside = "[^A-Z]"; inside = "^A-Z"; return true;
    case 'w': outside = inside = "\\w"; return true;
    case 'W': outside = inside = "\\W"; return true;
    case 'x': outside = "[A-Fa-f0-9]"; inside = "A-Fa-f0-9"; return true;
    case 'X': outside = "[^A-Fa-f0-9]"; inside = "^A-Fa-f0-9"; return true;
    default: return false;
    }
}

std::unique_ptr<CompiledGsubPattern> compileGsubPattern(const std::string& pattern) {
    std::string text, flags;
    if (pattern.compare(0, 3, "re:") == 0) {
        text = pattern.substr(3);
    } else if (!parseSlashRegexLiteral(pattern, text, flags)) {
        text = translateLuaPatternToRegex(pattern);
    }
    auto options = std::regex::ECMAScript;
    bool dotAll = false;
    for (char flag : flags) {
        if (flag == 'i') options |= std::regex::icase;
        else if (flag == 'm') dotAll = true;
        else throw std::runtime_error(std::string("gsub: unsupported regex flag '") + flag + "' (supported: i, m)");
    }
    if (dotAll) text = applyRegexDotAllTransform(text);
    auto compiled = std::make_unique<CompiledGsubPattern>();
    try {
        compiled->regex = std::regex(text, options);
    } catch (const std::regex_error& e) {
        throw std::runtime_error("gsub: invalid regex pattern '" + text + "': " + e.what());
    }
    ++compileCount;
    compiled->groupCount = compiled->regex.mark_count();
    compiled->regexText = std::move(text);
    return compiled;
}

// The standard regex engine recurses once per matched character or so, and a long match would
// run past the end of the main thread's stack. Walks over long subjects therefore run on a
// thread with a stack sized to the subject; its address space is only committed as used.
constexpr size_t kMainStackSubjectLimit = 2048;
constexpr size_t kStackBytesPerSubjectByte = 4096;

template <class Work>
void runWithStackFor(size_t subjectSize, Work&& work) {
    if (subjectSize <= kMainStackSubjectLimit) {
        work();
        return;
    }
    struct Job {
        Work* work;
        std::exception_ptr error;
    } job{&work, nullptr};
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    size_t stackSize = (size_t(64) << 20) + subjectSize * kStackBytesPerSubjectByte;
    pthread_attr_setstacksize(&attributes, stackSize);
    pthread_t thread;
    auto body = [](void* raw) -> void* {
        Job* running = static_cast<Job*>(raw);
        try {
            (*running->work)();
        } catch (...) {
            running->error = std::current_exception();
        }
        return nullptr;
    };
    int failed = pthread_create(&thread, &attributes, body, &job);
    pthread_attr_destroy(&attributes);
    if (failed) throw std::runtime_error("gsub: subject too long for the regex engine");
    pthread_join(thread, nullptr);
    if (job.error) std::rethrow_exception(job.error);
}

void appendMatch(PatternMatches& out, const std::cmatch& match, const char* base) {
    for (size_t g = 0; g < out.width; ++g) {
        if (g < match.size() && match[g].matched) {
            out.spans.push_back(match[g].first - base);
            out.spans.push_back(match[g].second - base);
        } else {
            out.spans.push_back(-1);
            out.spans.push_back(-1);
        }
    }
}

}  // namespace

void appendEscapedRegexChar(std::string& out, char c) {
    switch (c) {
    case '$': case '(': case ')': case '*': case '+': case '.': case '?':
    case '[': case '\\': case ']': case '^': case '{': case '|': case '}':
        out += '\\';
        break;
    default: break;
    }
    out += c;
}

std::string translateLuaPatternToRegex(std::string_view pattern) {
    std::string out;
    out.reserve(pattern.size() * 2);
    bool inClass = false;
    for (size_t i = 0; i < pattern.size(); ++i) {
        char c = pattern[i];
        if (c == '%' && i + 1 < pattern.size()) {
            char k = pattern[++i];
            const char* outside;
            const char* inside;
            if (k == '%') out += '%';
            else if (classTranslation(k, outside, inside)) out += inClass ? inside : outside;
            else appendEscapedRegexChar(out, k);
            continue;
        }
        if (inClass) {
            if (c == ']') inClass = false;
            if (c == '\\' || c == '^') out += '\\';
            out += c;
            continue;
        }
        switch (c) {
        case '[': inClass = true; out += c; break;
        case '^': case '$': case '(': case ')': case '*': case '+': case '.': case '?': out += c; break;
        case '-': out += "*?"; break;
        default: appendEscapedRegexChar(out, c); break;
        }
    }
    return out;
}

bool parseSlashRegexLiteral(std::string_view pattern, std::string& body, std::string& flags) {
    if (pattern.size() < 2 || pattern[0] != '/') return false;
    size_t last = std::string_view::npos;
    for (size_t i = 1; i < pattern.size(); ++i) {
        if (pattern[i] == '\\') ++i;
        else if (pattern[i] == '/') last = i;
    }
    if (last == std::string_view::npos) return false;
    for (size_t i = last + 1; i < pattern.size(); ++i)
        if (!isAsciiLetter(pattern[i])) return false;
    body.assign(pattern.substr(1, last - 1));
    flags.assign(pattern.substr(last + 1));
    return true;
}

std::string applyRegexDotAllTransform(std::string_view text) {
    std::string out;
    out.reserve(text.size() + 16);
    bool inClass = false;
    for (size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (c == '\\') {
            out += c;
            if (i + 1 < text.size()) out += text[++i];
            continue;
        }
        if (c == '[') inClass = true;
        else if (c == ']') inClass = false;
        if (c == '.' && !inClass) out += "[\\s\\S]";
        else out += c;
    }
    return out;
}

const CompiledGsubPattern& getCachedGsubPattern(const std::string& patternText) {
    auto& cache = patternCache();
    auto found = cache.find(patternText);
    if (found != cache.end()) return *found->second;
    auto compiled = compileGsubPattern(patternText);  // throws before anything is stored
    return *cache.emplace(patternText, std::move(compiled)).first->second;
}

uint64_t gsubPatternCompileCount() { return compileCount; }

bool gsubPatternIsCached(const std::string& patternText) { return patternCache().count(patternText) > 0; }

bool searchFirstMatch(const CompiledGsubPattern& pattern, std::string_view subject, size_t from, PatternMatches& out) {
    out.width = pattern.groupCount + 1;
    out.spans.clear();
    bool found = false;
    runWithStackFor(subject.size() - from, [&] {
        std::cmatch match;
        const char* base = subject.data();
        if (std::regex_search(base + from, base + subject.size(), match, pattern.regex)) {
            appendMatch(out, match, base);
            found = true;
        }
    });
    return found;
}

void searchAllMatches(const CompiledGsubPattern& pattern, std::string_view subject, PatternMatches& out) {
    out.width = pattern.groupCount + 1;
    out.spans.clear();
    runWithStackFor(subject.size(), [&] {
        const char* base = subject.data();
        std::cregex_iterator it(base, base + subject.size(), pattern.regex), end;
        for (; it != end; ++it) appendMatch(out, *it, base);
    });
}

void expandRegexReplacementTemplate(std::string& out, std::string_view templateText, const PatternMatches& matches,
                                    size_t match, std::string_view subject) {
    auto appendGroup = [&](size_t group) {
        if (group >= matches.width) return;
        int64_t start = matches.start(match, group);
        if (start < 0) return;
        out.append(subject.data() + start, size_t(matches.end(match, group) - start));
    };
    for (size_t i = 0; i < templateText.size(); ++i) {
        char c = templateText[i];
        if (c != '\\' || i + 1 == templateText.size()) {
            out += c;
            continue;
        }
        char k = templateText[++i];
        switch (k) {
        case '&':
        case '0': appendGroup(0); break;
        case '\'': out.append(subject.substr(size_t(matches.end(match, 0)))); break;
        case '`': out.append(subject.substr(0, size_t(matches.start(match, 0)))); break;
        case '+':
            for (size_t g = matches.width; g-- > 1;) {
                if (matches.start(match, g) >= 0) {
                    appendGroup(g);
                    break;
                }
            }
            break;
        default:
            if (k >= '1' && k <= '9') {
                size_t number = size_t(k - '0');
                while (i + 1 < templateText.size() && isAsciiDigit(templateText[i + 1]) &&
                       number * 10 + size_t(templateText[i + 1] - '0') < matches.width) {
                    number = number * 10 + size_t(templateText[++i] - '0');
                }
                appendGroup(number);
            } else {
                out += k;  // covers \\ as well
            }
            break;
        }
    }
}

bool scanDigitRun(std::string_view subject, size_t from, size_t& start, size_t& end) {
    size_t i = from;
    while (i < subject.size() && !isAsciiDigit(subject[i])) ++i;
    if (i >= subject.size()) return false;
    start = i;
    while (i < subject.size() && isAsciiDigit(subject[i])) ++i;
    end = i;
    return true;
}

bool scanWordDashNumber(std::string_view subject, size_t from, size_t spans[4]) {
    size_t n = subject.size();
    size_t i = from;
    while (i < n) {
        if (!isAsciiLetter(subject[i])) {
            ++i;
            continue;
        }
        size_t letters = i;
        while (i < n && isAsciiLetter(subject[i])) ++i;
        // Any later start inside this run meets the same byte behind it, so the run is done.
        if (i + 1 < n && subject[i] == '-' && isAsciiDigit(subject[i + 1])) {
            size_t digits = i + 1, j = digits;
            while (j < n && isAsciiDigit(subject[j])) ++j;
            spans[0] = letters;
            spans[1] = i;
            spans[2] = digits;
            spans[3] = j;
            return true;
        }
    }
    return false;
}

}  // namespace orvane
