// The language of the commands.
#include "tools/run.h"

#include <map>

namespace {

struct LanguageCase {
    const char *reason, *locale;
    std::vector<std::string> words;
    const char *text; // on standard output or standard error
};

const LanguageCase kCases[] = {
    {"the user's",
     "de_DE.UTF-8",
     {"explain", "32"},
     "QEL_ERR_BAD_PARAM: Ungültiger Funktionsparameter\n"},
    {"words of the commands",
     "de_DE.UTF-8",
     {"explain", "32"},
     "\n  Ein Argument fehlt, ist unmöglich oder liegt außerhalb des Bereichs.\n  Prüfen"},
    {"with numbers in them",
     "de_DE.UTF-8",
     {"explain", "32"},
     "\n  Ein Kommando, das daran scheitert, endet mit 3, eine Prüfung mit 1.\n"},
    {"LC_ALL counts before LANG", "C.UTF-8", {"explain", "32"}, ": Invalid function parameter\n"},
    {"a terminal without UTF-8",
     "de_DE.ISO-8859-1",
     {"explain", "32"},
     ": Invalid function parameter\n"},
    {"no such locale", "de_XX.UTF-8", {"explain", "32"}, ": Invalid function parameter\n"},
    {"for programs", "de_DE.UTF-8", {"explain", "--json", "32"}, "\"Invalid function parameter\""},
    {"what failed",
     "de_DE.UTF-8",
     {"digest", "/none"},
     "qel: digest: '/none' lässt sich nicht öffnen: "},
    {"what to do", "de_DE.UTF-8", {"digest", "/none"}, "qel: digest: Den Namen prüfen.\n"},
    {"a value that looks like a placeholder",
     "de_DE.UTF-8",
     {"digest", "--to={1}{2}"},
     "qel: digest: unbekannte oder mehrdeutige Option '--to={1}{2}'\n'qel help digest' sagt"},
    {"a failure for programs, and the system's part of it",
     "de_DE.UTF-8",
     {"digest", "--json", "/"},
     "\"why\": \"Is a directory\""},
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
        const Ran ran = qel(row.words, {.locale = row.locale});
        EXPECT_TRUE(holds(ran.out + ran.err, row.text)) << row.reason << "\n" << ran.out << ran.err;
    }
}

// One set of the English catalogue, by the numbers of its messages.
std::map<int, std::string> english_messages(const std::string &set) {
    std::map<int, std::string> messages;
    std::istringstream source(text_of(read_file(QEL_SOURCE "/msg/qelcat.msg")));
    bool wanted = false;
    for (std::string line; std::getline(source, line);)
        if (line.starts_with("$set"))
            wanted = line == "$set " + set;
        else if (const std::size_t blank = line.find(' ');
                 wanted && line.find('$') != 0 && blank != line.npos)
            messages[std::stoi(line)] = line.substr(blank + 1);
    return messages;
}

TEST(Language, MeaningsAndAdviceAreTheSameInProgramAndCatalogue) {
    std::map<int, std::string> texts;
    const Json table = qel({"explain", "--json"}).json()["statuses"];
    for (const Json &row : table) {
        const int number = row["number"];
        texts[1 + number] = row["meaning"];
        texts[101 + number] = row["advice"];
    }
    EXPECT_EQ(english_messages("3"), texts);
}

TEST(Language, WordsAreTheSameInProgramAndCatalogue) {
    std::map<int, std::string> texts;
    const auto add = [&](int number, const char *english) {
        EXPECT_TRUE(texts.emplace(number, english).second) << number << " comes twice";
    };
#define TEXT(number, name, english) add(number, english);
#include "../../tools/texts.inc"
#undef TEXT
    EXPECT_EQ(english_messages("4"), texts);
}

} // namespace
