// run.h: runs programs for tests of the commands, which are judged by what a user sees.
#ifndef TESTS_TOOLS_RUN_H
#define TESTS_TOOLS_RUN_H

#include "support/files.h"

#include <cstdlib>
#include <fcntl.h>
#include <iterator>
#include <sstream>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

using Json = nlohmann::json;

struct Ran {
    int exit = -1; // 1000 and the signal's number for a program that a signal ended
    std::string out, err;
    long peak_kib = 0;
    Json json() const { return Json::parse(out); }
};

struct How {
    Bytes input = {};             // standard input
    std::string output_file = {}; // where standard output goes instead of Ran::out
    bool close_output = false;    // standard output is closed
    bool together = false;        // standard error goes where standard output goes
    std::string locale = "C.UTF-8";
};

[[noreturn]] inline void become(std::vector<std::string> words) {
    std::vector<char *> argv;
    for (std::string &word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    execvp(argv[0], argv.data());
    _exit(127);
}

[[noreturn]] inline void become(const std::vector<std::string> &words, const How &how,
                                const std::string &in, const std::string &out,
                                const std::string &err) {
    setenv("LC_ALL", how.locale.c_str(), 1);
    dup2(open(in.c_str(), O_RDONLY), STDIN_FILENO);
    const std::string &target = how.output_file.empty() ? out : how.output_file;
    dup2(open(target.c_str(), O_WRONLY | O_CREAT, 0600), STDOUT_FILENO);
    dup2(how.together ? STDOUT_FILENO : open(err.c_str(), O_WRONLY | O_CREAT, 0600), STDERR_FILENO);
    closefrom(3);
    if (how.close_output)
        close(STDOUT_FILENO);
    become(words);
}

inline Ran run_program(const std::vector<std::string> &words, const How &how = {}) {
    const TemporaryFolder folder;
    const std::string in = folder.path("in"), out = folder.path("out"), err = folder.path("err");
    write_file(in, how.input);
    write_file(out, {});
    write_file(err, {});
    const pid_t child = fork();
    if (child == 0)
        become(words, how, in, out, err);
    int status = 0;
    rusage usage = {};
    Ran ran;
    if (child < 0 || wait4(child, &status, 0, &usage) != child)
        return ran;
    ran.exit = WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
    ran.out = text_of(read_file(out));
    ran.err = text_of(read_file(err));
    ran.peak_kib = usage.ru_maxrss;
    return ran;
}

#ifdef QEL_TOOL
// The command under test.
inline Ran qel(std::vector<std::string> words, const How &how = {}) {
    words.insert(words.begin(), QEL_TOOL);
    return run_program(words, how);
}
#endif

// The words of a command line, which blanks separate.
inline std::vector<std::string> split(const std::string &line) {
    std::istringstream stream(line);
    return std::vector<std::string>(std::istream_iterator<std::string>(stream), {});
}

// The oracle. A failure of it ends the test.
inline Ran openssl(std::vector<std::string> words) {
    words.insert(words.begin(), "openssl");
    const Ran ran = run_program(words);
    if (ran.exit != 0)
        ADD_FAILURE() << "openssl " << words[1] << ": " << ran.err;
    return ran;
}

// Tests that share a folder, with what they make in it.
class SharedFolder : public ::testing::Test {
protected:
    static std::string path(const std::string &name) {
        static const TemporaryFolder folder;
        return folder.path(name);
    }
    static Bytes contents(const std::string &name) { return read_file(path(name)); }
    static std::string text(const std::string &name) { return text_of(contents(name)); }
    static bool exists(const std::string &name) { return access(path(name).c_str(), F_OK) == 0; }

    // A command line: its words stand between blanks, and $name is a file of the folder.
    static std::vector<std::string> words_of(const std::string &line) {
        std::vector<std::string> words = split(line);
        for (std::string &word : words)
            if (const std::size_t at = word.find('$'); at != word.npos)
                word = word.substr(0, at) + path(word.substr(at + 1));
        return words;
    }
    static Ran oracle(const std::string &line) { return openssl(words_of(line)); }
#ifdef QEL_TOOL
    static Ran run(const std::string &line, const How &how = {}) {
        return qel(words_of(line), how);
    }
    static void must(const std::string &line) {
        const Ran ran = run(line);
        EXPECT_EQ(ran.exit, 0) << line << "\n" << ran.err;
    }
#endif
};

inline Bytes sample(std::size_t size) {
    Bytes data(size);
    for (std::size_t i = 0; i < size; ++i)
        data[i] = static_cast<uint8_t>(i * 13 + i / 255);
    return data;
}

inline bool holds(const std::string &text, const std::string &part) {
    return text.find(part) != text.npos;
}

// Replaces the one place where bytes hold from, by as many bytes.
inline Bytes patched(Bytes bytes, const Bytes &from, const Bytes &to) {
    const auto found = std::search(bytes.begin(), bytes.end(), from.begin(), from.end());
    if (found == bytes.end() || from.size() != to.size())
        ADD_FAILURE() << "nothing to patch";
    else
        std::copy(to.begin(), to.end(), found);
    return bytes;
}

inline void PrintTo(const Ran &ran, std::ostream *stream) {
    *stream << "exit " << ran.exit << "\nout: " << ran.out << "\nerr: " << ran.err;
}

#endif
