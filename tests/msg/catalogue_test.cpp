// The message catalogues: each has all messages of the English one, and reaches the user.
#include "support/files.h"

#include <lib/context.h>
#include <qel/qelp.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <regex>

namespace {

const char *const kLanguages[] = {"de", "es", "fr", "ja"};

using Messages = std::map<std::pair<int, int>, std::string>; // by set and number

Messages messages_of(const std::string &name) {
    Messages messages;
    std::ifstream source(std::string(QEL_MESSAGES) + "/" + name + ".msg");
    int set = 0;
    for (std::string line; std::getline(source, line);) {
        std::smatch found;
        if (std::regex_match(line, found, std::regex("\\$set (\\d+)")))
            set = std::stoi(found[1]);
        else if (std::regex_match(line, found, std::regex("(\\d+) (.+)")))
            EXPECT_TRUE(messages.insert({{set, std::stoi(found[1])}, found[2]}).second) << line;
        else
            EXPECT_TRUE(line.empty() || line.starts_with("$ ")) << line;
    }
    return messages;
}

// What a translation keeps: directives, placeholders, programs, options, formats, abbreviations.
std::vector<std::string> kept_words(const std::string &text) {
    const std::regex word(
        "%[-0-9$.]*[a-z%]|\\{[1-9]\\}|qel[a-z]*|--[a-z-]+|QEL|XFN|ASN1|RFC1421|Hellman|[12]\\b|"
        "MD[25]|RSA|JSON|NULL|rpcbind");
    std::vector<std::string> words(std::sregex_token_iterator(text.begin(), text.end(), word), {});
    std::sort(words.begin(), words.end());
    return words;
}

TEST(Catalogue, EveryLanguageHasEveryMessage) {
    const Messages english = messages_of("qelcat");
    for (const std::string language : kLanguages) {
        SCOPED_TRACE(language);
        const Messages translated = messages_of(language);
        EXPECT_EQ(translated.size(), english.size());
        std::map<std::string, std::string> stands_for;
        for (const auto &[number, text] : english) {
            const auto found = translated.find(number);
            if (found == translated.end()) {
                ADD_FAILURE() << "nothing for " << text;
                continue;
            }
            EXPECT_EQ(kept_words(found->second), kept_words(text)) << found->second;
            EXPECT_NE(found->second, text) << "is not translated";
            EXPECT_EQ(stands_for.emplace(found->second, text).first->second, text)
                << found->second << " stands for two";
        }
    }
}

TEST(Catalogue, TheEnglishOneIsTheLibrarys) {
    setenv("NLSPATH", "/nowhere/%N", 1);
    setenv("LANG", "C", 1);
    const Messages english = messages_of("qelcat");
    for (QelStatus status = 0; status <= QEL_ERR_OPEN_FILE; ++status)
        EXPECT_EQ(english.at({2, static_cast<int>(status) + 1}), qel_strerror(nullptr, status));
    EXPECT_EQ(english.at({2, 100}), qel_strerror(nullptr, QEL_ERR_OPEN_FILE + 1));
}

// catopen goes by LANG alone and needs no locale of that name.
TEST(Catalogue, TheLibrarySpeaksTheLanguageOfTheUser) {
    setenv("NLSPATH", QEL_LOCALE "/%l/LC_MESSAGES/%N", 1);
    for (const std::string language : kLanguages) {
        for (const char *rest : {"", "_XX.UTF-8"}) {
            SCOPED_TRACE(language + rest);
            setenv("LANG", (language + rest).c_str(), 1);
            QelContext *made = nullptr;
            ASSERT_EQ(__qel_init(&made, nullptr, nullptr), QEL_OK);
            const qel::OwnedContext context(made);
            for (const auto &[number, text] : messages_of(language)) {
                if (number.first != 2)
                    continue;
                const auto status = static_cast<QelStatus>(number.second - 1);
                EXPECT_EQ(qel_strerror(context.get(), status), text);
                EXPECT_EQ(qel_strerror(nullptr, status), text);
            }
        }
    }
    setenv("LANG", "nl_NL.UTF-8", 1);
    EXPECT_STREQ(qel_strerror(nullptr, QEL_OK), "Success");
}

} // namespace
