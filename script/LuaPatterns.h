// Script patterns: Lua-style patterns, slash literals and "re:" texts, all turned into one
// compiled std::regex (ECMAScript) per pattern text, kept while the text is in use.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <regex>
#include <string>
#include <string_view>
#include <vector>

namespace orvane {

struct CompiledGsubPattern {
    std::regex regex;
    std::string regexText;  // the text that was compiled, after translation and flags
    size_t groupCount = 0;  // capture groups, the whole match not counted
};

// The pieces of the compile, exposed for tests and for the compiled-execution fast paths.
std::string translateLuaPatternToRegex(std::string_view pattern);
bool parseSlashRegexLiteral(std::string_view pattern, std::string& body, std::string& flags);
std::string applyRegexDotAllTransform(std::string_view text);
void appendEscapedRegexChar(std::string& out, char c);

// The process-wide cache of the patterns most recently used. A text that fails to compile, or
// is too long or too deeply nested for the engine, throws and leaves no entry. The pattern stays
// good for as long as the caller holds it, whatever the cache lets go meanwhile.
constexpr size_t kPatternCacheCapacity = 256;
std::shared_ptr<const CompiledGsubPattern> getCachedGsubPattern(const std::string& patternText);
uint64_t gsubPatternCompileCount();
bool gsubPatternIsCached(const std::string& patternText);
size_t gsubPatternCacheSize();

// Match positions as byte offsets into the subject: for each match, groupCount + 1 pairs
// (start, end), the whole match first; -1, -1 for a group that didn't take part.
struct PatternMatches {
    size_t width = 1;  // pairs per match
    std::vector<int64_t> spans;
    size_t count() const { return spans.size() / (2 * width); }
    int64_t start(size_t match, size_t group) const { return spans[(match * width + group) * 2]; }
    int64_t end(size_t match, size_t group) const { return spans[(match * width + group) * 2 + 1]; }
};

// The first match in subject[from, end), `^` anchoring at `from`; false when there is none.
bool searchFirstMatch(const CompiledGsubPattern& pattern, std::string_view subject, size_t from, PatternMatches& out);
// Every match over the whole subject, in the order of the standard regex iterator.
void searchAllMatches(const CompiledGsubPattern& pattern, std::string_view subject, PatternMatches& out);

// The replacement template of gsub: \& \0 \' \` \+ \\ and \1.. \9, greedy while a group exists
// (`width` counts the groups with the whole match). Read once into pieces, so that the size of
// a result is known before it is built.
struct ReplacementPiece {
    enum Kind : uint8_t { Literal, Group, Before, After, LastGroup } kind;
    size_t offset;  // Literal: where in the template; Group: the group number
    size_t length;  // Literal: how many bytes
};
std::vector<ReplacementPiece> parseReplacementTemplate(std::string_view templateText, size_t width);
size_t replacementSize(const std::vector<ReplacementPiece>& pieces, const PatternMatches& matches, size_t match,
                       std::string_view subject);
void appendReplacement(std::string& out, const std::vector<ReplacementPiece>& pieces, std::string_view templateText,
                       const PatternMatches& matches, size_t match, std::string_view subject);

// The hand-written walks of the hot patterns. "%d+": the first run of ASCII digits at or after
// `from`. "(%a+)%-(%d+)": letters, '-', digits; spans holds letters start/end, digits start/end.
bool scanDigitRun(std::string_view subject, size_t from, size_t& start, size_t& end);
bool scanWordDashNumber(std::string_view subject, size_t from, size_t spans[4]);

}  // namespace orvane
