// The language in which the commands tell statuses.
#include "tools/run.h"

#include <map>

namespace {

struct LanguageCase {
    const char *reason, *locale, *option, *text;
};

const LanguageCase kCases[] = {
    {"the user's", "de_DE.UTF-8", "--batch", "QEL_ERR_BAD_PARAM: Ungültiger Funktionsparameter\n"},
    {"words of the commands", "de_DE.UTF-8", "--batch",
     "\n  Ein Argument fehlt, ist unmöglich oder liegt außerhalb des Bereichs.\n  Prüfen"},
    {"with numbers in them", "de_DE.UTF-8", "--batch",
     "\n  Ein Kommando, das daran scheitert, endet mit 3, eine Prüfung mit 1.\n"},
    {"LC_ALL counts before LANG", "C.UTF-8", "--batch", ": Invalid function parameter\n"},
    {"a terminal without UTF-8", "de_DE.ISO-8859-1", "--batch", ": Invalid function parameter\n"},
    {"no such locale", "de_XX.UTF-8", "--batch", ": Invalid function parameter\n"},
    {"for programs", "de_DE.UTF-8", "--json", "\"Invalid function parameter\""},
};

TEST(Language, IsTheUsersWhereTheTerminalShowsIt) {
    const TemporaryFolder folder;
    for (const std::string charset : {"UTF-8", "ISO-8859-1"}) {
        const std::string locale = folder.path("de_DE." + charset);
        if (run_program({"localedef", "-i", "de_DE", "-f", charset, locale}).exit != 0)
            GTEST_SKIP() << "no German locale can be made here";
    }
    setenv("LOCPATH", folder.path("").c_str(), 1);
    setenv("NLSPATH", QEL_LOCALE "/%l/LC_MESSAGES/%N", 1);
    setenv("LANG", "de_DE.UTF-8", 1);
    for (const LanguageCase &row : kCases) {
        const Ran ran = qel({"explain", row.option, "32"}, {.locale = row.locale});
        EXPECT_EQ(ran.exit, 0);
        EXPECT_TRUE(holds(ran.out, row.text)) << row.reason << "\n" << ran.out;
    }
}

// The texts in the program, by their messages in the English catalogue.
TEST(Language, EnglishIsTheSameInProgramAndCatalogue) {
    std::map<std::string, std::string> messages; // of set 3
    std::istringstream source(text_of(read_file(QEL_SOURCE "/msg/qelcat.msg")));
    bool commands = false;
    for (std::string line; std::getline(source, line);)
        if (line.starts_with("$set"))
            commands = line == "$set 3";
        else if (const std::size_t blank = line.find(' '); commands && blank != line.npos)
            messages[line.substr(0, blank)] = line.substr(blank + 1);
    const Json table = qel({"explain", "--json"}).json()["statuses"];
    EXPECT_EQ(messages.size(), 2 * table.size() + 2);
    for (const Json &row : table) {
        const int number = row["number"];
        EXPECT_EQ(messages[std::to_string(1 + number)], row["meaning"]);
        EXPECT_EQ(messages[std::to_string(101 + number)], row["advice"]);
    }
    const auto put = [](std::string text, const std::string &value) {
        return text.replace(text.find("%s"), 2, value);
    };
    EXPECT_TRUE(holds(qel({"explain", "2"}).out, "\n  " + put(messages["201"], "70") + "\n"));
    EXPECT_TRUE(
        holds(qel({"explain", "8"}).out, "\n  " + put(put(messages["202"], "3"), "1") + "\n"));
}

} // namespace
