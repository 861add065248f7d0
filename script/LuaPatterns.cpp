// Pattern translation, the process-wide cache of compiled regular expressions, and the match walks.
#include "script/LuaPatterns.h"

#include <pthread.h>

#include <algorithm>
#include <exception>
#include <list>
#include <memory>
#include <stdexcept>
#include <unordered_map>

namespace orvane {

namespace {

// The compiled patterns most recently used, newest first; a text compiles once while it stays
// among them. Bounded, so that a script making endless distinct patterns holds a fixed amount.
struct PatternCache {
    using Entry = std::pair<std::string, std::shared_ptr<const CompiledGsubPattern>>;
    std::list<Entry> recent;
    std::unordered_map<std::string_view, std::list<Entry>::iterator> byText;
};

PatternCache& patternCache() {
    // Never destroyed: natives may still run from static destructors of other objects.
    static auto* cache = new PatternCache();
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

// The standard regex engine recurses: compiling, once per nesting level and per term; matching,
// once per state passed on the way through the subject, so a long match of a long pattern runs
// deep. Measured with this library (AddressSanitizer's frames being the largest), compiling
// takes under 2 KiB of stack per pattern byte, and matching under 256 bytes per pattern byte for
// each subject byte. Work whose estimate passes what the main thread can spare runs on a thread
// with a stack of that size; address space is only committed as used.
constexpr size_t kCompileStackPerPatternByte = 2048;
constexpr size_t kMatchStackPerStateByte = 256;
constexpr size_t kStackBase = size_t(64) << 10;
constexpr size_t kMainThreadStackSpare = size_t(1) << 20;
constexpr size_t kMaxWorkStack = size_t(16) << 30;
// What the engine is given at all: beyond these a pattern is refused with a clear error.
constexpr size_t kMaxRegexLength = 65536;
constexpr size_t kMaxGroupNesting = 100;

size_t matchStackFor(size_t regexLength, size_t subjectLength) {
    const size_t perSubjectByte = kMatchStackPerStateByte * (regexLength + 2);
    if (subjectLength + 1 > kMaxWorkStack / perSubjectByte) return SIZE_MAX;
    return kStackBase + (subjectLength + 1) * perSubjectByte;
}

template <class Work>
void runWithStack(size_t stackBytes, Work&& work) {
    if (stackBytes <= kMainThreadStackSpare) {
        work();
        return;
    }
    if (stackBytes > kMaxWorkStack) throw std::runtime_error("gsub: subject too long for this pattern");
    struct Job {
        Work* work;
        std::exception_ptr error;
    } job{&work, nullptr};
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, stackBytes);
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

// Deepest nesting of groups in a regular expression, escapes and bracket classes skipped.
size_t groupNesting(std::string_view text) {
    size_t depth = 0, deepest = 0;
    bool inClass = false;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '\\') ++i;
        else if (inClass) inClass = c != ']';
        else if (c == '[') inClass = true;
        else if (c == '(') deepest = std::max(deepest, ++depth);
        else if (c == ')' && depth > 0) --depth;
    }
    return deepest;
}

std::shared_ptr<const CompiledGsubPattern> compileGsubPattern(const std::string& pattern) {
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
    if (text.size() > kMaxRegexLength)
        throw std::runtime_error("gsub: pattern too long (" + std::to_string(text.size()) + " bytes as a regex, at most " +
                                 std::to_string(kMaxRegexLength) + ")");
    if (groupNesting(text) > kMaxGroupNesting)
        throw std::runtime_error("gsub: pattern nests groups deeper than " + std::to_string(kMaxGroupNesting) + " levels");
    auto compiled = std::make_shared<CompiledGsubPattern>();
    runWithStack(kStackBase + text.size() * kCompileStackPerPatternByte, [&] {
        try {
            compiled->regex = std::regex(text, options);
        } catch (const std::regex_error& e) {
            throw std::runtime_error("gsub: invalid regex pattern '" + text + "': " + e.what());
        }
    });
    ++compileCount;
    compiled->groupCount = compiled->regex.mark_count();
    compiled->regexText = std::move(text);
    return compiled;
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

std::shared_ptr<const CompiledGsubPattern> getCachedGsubPattern(const std::string& patternText) {
    PatternCache& cache = patternCache();
    auto found = cache.byText.find(patternText);
    if (found != cache.byText.end()) {
        cache.recent.splice(cache.recent.begin(), cache.recent, found->second);
        return found->second->second;
    }
    auto compiled = compileGsubPattern(patternText);  // throws before anything is stored
    if (cache.recent.size() == kPatternCacheCapacity) {
        cache.byText.erase(cache.recent.back().first);
        cache.recent.pop_back();
    }
    cache.recent.emplace_front(patternText, compiled);
    cache.byText.emplace(cache.recent.front().first, cache.recent.begin());
    return compiled;
}

uint64_t gsubPatternCompileCount() { return compileCount; }

bool gsubPatternIsCached(const std::string& patternText) { return patternCache().byText.count(patternText) > 0; }

size_t gsubPatternCacheSize() { return patternCache().recent.size(); }

bool searchFirstMatch(const CompiledGsubPattern& pattern, std::string_view subject, size_t from, PatternMatches& out) {
    out.width = pattern.groupCount + 1;
    out.spans.clear();
    bool found = false;
    runWithStack(matchStackFor(pattern.regexText.size(), subject.size() - from), [&] {
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
    runWithStack(matchStackFor(pattern.regexText.size(), subject.size()), [&] {
        const char* base = subject.data();
        std::cregex_iterator it(base, base + subject.size(), pattern.regex), end;
        for (; it != end; ++it) appendMatch(out, *it, base);
    });
}

std::vector<ReplacementPiece> parseReplacementTemplate(std::string_view templateText, size_t width) {
    std::vector<ReplacementPiece> pieces;
    auto literal = [&](size_t offset, size_t length) {
        if (!pieces.empty() && pieces.back().kind == ReplacementPiece::Literal &&
            pieces.back().offset + pieces.back().length == offset)
            pieces.back().length += length;
        else
            pieces.push_back({ReplacementPiece::Literal, offset, length});
    };
    for (size_t i = 0; i < templateText.size(); ++i) {
        if (templateText[i] != '\\' || i + 1 == templateText.size()) {
            literal(i, 1);
            continue;
        }
        const char k = templateText[++i];
        switch (k) {
        case '&':
        case '0': pieces.push_back({ReplacementPiece::Group, 0, 0}); break;
        case '\'': pieces.push_back({ReplacementPiece::After, 0, 0}); break;
        case '`': pieces.push_back({ReplacementPiece::Before, 0, 0}); break;
        case '+': pieces.push_back({ReplacementPiece::LastGroup, 0, 0}); break;
        default:
            if (k >= '1' && k <= '9') {
                size_t number = size_t(k - '0');
                while (i + 1 < templateText.size() && isAsciiDigit(templateText[i + 1]) &&
                       number * 10 + size_t(templateText[i + 1] - '0') < width) {
                    number = number * 10 + size_t(templateText[++i] - '0');
                }
                pieces.push_back({ReplacementPiece::Group, number, 0});
            } else {
                literal(i, 1);  // covers \\ as well
            }
            break;
        }
    }
    return pieces;
}

namespace {

// The span of subject that a piece other than a literal stands for in one match; empty when
// its group is missing or did not take part.
std::string_view pieceSpan(const ReplacementPiece& piece, const PatternMatches& matches, size_t match,
                           std::string_view subject) {
    auto group = [&](size_t g) -> std::string_view {
        if (g >= matches.width || matches.start(match, g) < 0) return {};
        const size_t start = size_t(matches.start(match, g));
        return subject.substr(start, size_t(matches.end(match, g)) - start);
    };
    switch (piece.kind) {
    case ReplacementPiece::Group: return group(piece.offset);
    case ReplacementPiece::After: return subject.substr(size_t(matches.end(match, 0)));
    case ReplacementPiece::Before: return subject.substr(0, size_t(matches.start(match, 0)));
    case ReplacementPiece::LastGroup:
        for (size_t g = matches.width; g-- > 1;)
            if (matches.start(match, g) >= 0) return group(g);
        return {};
    case ReplacementPiece::Literal: break;
    }
    return {};
}

}  // namespace

size_t replacementSize(const std::vector<ReplacementPiece>& pieces, const PatternMatches& matches, size_t match,
                       std::string_view subject) {
    size_t size = 0;
    for (const ReplacementPiece& piece : pieces)
        size += piece.kind == ReplacementPiece::Literal ? piece.length : pieceSpan(piece, matches, match, subject).size();
    return size;
}

void appendReplacement(std::string& out, const std::vector<ReplacementPiece>& pieces, std::string_view templateText,
                       const PatternMatches& matches, size_t match, std::string_view subject) {
    for (const ReplacementPiece& piece : pieces) {
        if (piece.kind == ReplacementPiece::Literal) out.append(templateText.substr(piece.offset, piece.length));
        else out.append(pieceSpan(piece, matches, match, subject));
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
