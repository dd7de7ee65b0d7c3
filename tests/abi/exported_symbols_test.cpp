// The binary interface of librtmonitor.so: its dynamic symbol table must be exactly the committed
// list (tests/abi/exported_symbols.txt), so that any change to what hosts can link against is a
// deliberate edit of that list (and of CHANGELOG.md), never a side effect of a refactoring.
// The list holds demangled names, one a line, sorted; a lone '#' starts a comment line.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <set>
#include <string>

namespace {

const char* const kLibrary = RTM_BINARY_DIR "/librtmonitor.so";
const char* const kExpectedList = RTM_SOURCE_DIR "/tests/abi/exported_symbols.txt";

// Defined dynamic symbols as `nm -D --defined-only -C` prints them: address, type, name.
bool readExported(std::set<std::string>& names) {
    const std::string cmd = std::string("nm -D --defined-only -C '") + kLibrary + "' 2>/dev/null";
    FILE* pipe = popen(cmd.c_str(), "r");
    if (pipe == nullptr) return false;
    char buf[4096];
    while (fgets(buf, sizeof buf, pipe) != nullptr) {
        std::string line(buf);
        if (!line.empty() && line.back() == '\n') line.pop_back();
        const size_t type = line.find(' ');
        if (type != std::string::npos && type + 3 <= line.size()) names.insert(line.substr(type + 3));
    }
    return pclose(pipe) == 0 && !names.empty();
}

std::set<std::string> readExpected() {
    std::set<std::string> names;
    std::ifstream in(kExpectedList);
    std::string line;
    while (std::getline(in, line)) {
        if (!line.empty() && line[0] != '#') names.insert(line);
    }
    return names;
}

std::string difference(const std::set<std::string>& a, const std::set<std::string>& b) {
    std::string out;
    for (const std::string& name : a) {
        if (b.count(name) == 0) out += "  " + name + "\n";
    }
    return out;
}

TEST(Exports, SharedLibraryExportsExactlyTheCommittedList) {
    std::set<std::string> exported;
    if (!readExported(exported)) GTEST_SKIP() << "nm (binutils) is not available or " << kLibrary << " is not built";
    const std::set<std::string> expected = readExpected();
    ASSERT_FALSE(expected.empty()) << "cannot read " << kExpectedList;
    EXPECT_EQ(exported, expected) << "exported but not listed:\n"
                                  << difference(exported, expected) << "listed but not exported:\n"
                                  << difference(expected, exported)
                                  << "A deliberate change of the binary interface updates src/api/exports.map, "
                                     "the list and CHANGELOG.md together.";
}

TEST(Exports, NoInternalHelperOrLibraryInstantiationLeaks) {
    std::set<std::string> exported;
    if (!readExported(exported)) GTEST_SKIP() << "nm (binutils) is not available or " << kLibrary << " is not built";
    for (const std::string& name : exported) {
        // The function or object name itself, before any parameter list.
        const std::string head = name.substr(0, name.find('('));
        EXPECT_EQ(head.find("std::"), std::string::npos) << name;
        EXPECT_EQ(head.find("rtm::"), std::string::npos) << name;
    }
}

}  // namespace
