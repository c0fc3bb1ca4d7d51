// packages.h: tests of commands that use key packages, in a folder of their own.
#ifndef TESTS_TOOLS_PACKAGES_H
#define TESTS_TOOLS_PACKAGES_H

#include "tools/run.h"

#include <sys/stat.h>

class Packages : public SharedFolder {
protected:
    static void SetUpTestSuite() { write_secret("phrase", bytes_of("a pass phrase\n")); }
    static void write_secret(const std::string &name, const Bytes &contents) {
        write_file(path(name), contents);
        chmod(path(name).c_str(), 0600);
    }

    // A command line: its words stand between blanks, and $name is a file of the folder.
    static std::vector<std::string> words_of(const std::string &line) {
        std::vector<std::string> words = split(line);
        for (std::string &word : words)
            if (const std::size_t at = word.find('$'); at != word.npos)
                word = word.substr(0, at) + path(word.substr(at + 1));
        return words;
    }
    static Ran run(const std::string &line, const How &how = {}) {
        return qel(words_of(line), how);
    }
    static void must(const std::string &line) {
        const Ran ran = run(line);
        EXPECT_EQ(ran.exit, 0) << line << "\n" << ran.err;
    }
    // A package of few iterations, so that tests are quick.
    static void make_package(const std::string &file, const std::string &owner,
                             const std::string &more = "") {
        must("keygen --iterations 1000 --passin file:$phrase --owner " + owner + " -o $" + file +
             " " + more);
    }
    static bool exists(const std::string &name) { return access(path(name).c_str(), F_OK) == 0; }
    static std::string text(const std::string &name) { return text_of(contents(name)); }
};

#endif
