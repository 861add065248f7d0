// The API reference and the running engine name the same globals and module members: a name
// missing from either side fails, so the reference cannot drift from the engine.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <regex>
#include <set>
#include <string>

#include "host/HostModules.h"
#include "host/ProcessObjects.h"

using namespace orvane;

namespace {

// Every global, and for a global table every member as "Table.member".
std::set<std::string> registeredNames() {
    std::set<std::string> names;
    for (const std::string& name : engine.globalNames()) {
        names.insert(name);
        const Variable value = engine.pullVariable(name);
        if (value.type != VarType::Table) continue;
        for (const auto& member : *value.asTable()) names.insert(name + "." + member.first);
    }
    return names;
}

// The names the reference documents: the first backticked word of each "- `...`" line, cut at
// the first parenthesis or space.
std::set<std::string> documentedNames(const std::string& path) {
    std::set<std::string> names;
    std::ifstream in(path);
    std::string line;
    const std::regex entry(R"(^- `([A-Za-z0-9_.]+))");
    std::smatch match;
    while (std::getline(in, line))
        if (std::regex_search(line, match, entry)) names.insert(match[1]);
    return names;
}

std::string listed(const std::set<std::string>& names) {
    std::string text;
    for (const std::string& name : names) text += "  " + name + "\n";
    return text;
}

}  // namespace

TEST(ApiReference, NamesTheSameGlobalsAndMembersAsTheEngine) {
    registerFunctions();
    const std::set<std::string> registered = registeredNames();
    const std::set<std::string> documented = documentedNames(OT_API_REFERENCE);
    ASSERT_GT(documented.size(), 0u) << "no entries read from " << OT_API_REFERENCE;
    std::set<std::string> undocumented, unknown;
    std::set_difference(registered.begin(), registered.end(), documented.begin(), documented.end(),
                        std::inserter(undocumented, undocumented.end()));
    std::set_difference(documented.begin(), documented.end(), registered.begin(), registered.end(),
                        std::inserter(unknown, unknown.end()));
    EXPECT_TRUE(undocumented.empty()) << "registered but not in docs/api.md:\n" << listed(undocumented);
    EXPECT_TRUE(unknown.empty()) << "in docs/api.md but not registered:\n" << listed(unknown);
}
