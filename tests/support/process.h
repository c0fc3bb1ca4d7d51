// process.h: standard descriptors replaced for a while, and checks in a process of their own.
#ifndef TESTS_SUPPORT_PROCESS_H
#define TESTS_SUPPORT_PROCESS_H

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

// Runs work with another file, which it closes, in place of a standard descriptor.
template <class Work> auto with_descriptor(int standard, int replacement, const Work &work) {
    const int kept = dup(standard);
    dup2(replacement, standard);
    close(replacement);
    struct Restore {
        int from, to;
        ~Restore() {
            dup2(from, to);
            close(from);
        }
    } restore = {kept, standard};
    return work();
}

// Runs work with text on its standard input, a pipe in which it comes in pieces.
template <class Work> auto with_input(const std::string &text, const Work &work) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    std::thread writer([&] {
        constexpr std::size_t piece = 777;
        for (std::size_t at = 0; at < text.size(); at += piece) {
            const std::string part = text.substr(at, piece);
            EXPECT_EQ(write(ends[1], part.data(), part.size()), static_cast<ssize_t>(part.size()));
            usleep(100);
        }
        close(ends[1]);
    });
    struct Join {
        std::thread &thread;
        ~Join() { thread.join(); }
    } join = {writer};
    return with_descriptor(STDIN_FILENO, ends[0], work);
}

// What work writes to standard output, a pipe; no more than fits into one.
template <class Work> std::string output_of(const Work &work) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    with_descriptor(STDOUT_FILENO, ends[1], work);
    std::string text;
    char part[4096];
    for (ssize_t count; (count = read(ends[0], part, sizeof part)) > 0;)
        text.append(part, static_cast<std::size_t>(count));
    close(ends[0]);
    return text;
}

// What work writes to a stream.
inline std::string written_by(const std::function<void(FILE *)> &work) {
    char *text = nullptr;
    std::size_t size = 0;
    FILE *stream = open_memstream(&text, &size);
    work(stream);
    std::fclose(stream);
    std::string result(text, size);
    std::free(text);
    return result;
}

// Expects that no descriptor is opened and left while one of these lives.
class NoDescriptorIsLeft {
public:
    NoDescriptorIsLeft() : lowest_(lowest()) {}
    NoDescriptorIsLeft(const NoDescriptorIsLeft &) = delete;
    NoDescriptorIsLeft &operator=(const NoDescriptorIsLeft &) = delete;
    ~NoDescriptorIsLeft() { EXPECT_EQ(lowest(), lowest_) << "a descriptor is open"; }

private:
    static int lowest() {
        const int descriptor = dup(STDIN_FILENO);
        close(descriptor);
        return descriptor;
    }
    int lowest_;
};

// Runs check in a process of its own and expects that all is well there.
inline void in_child(const std::function<void()> &check) {
    const pid_t child = fork();
    if (child == 0) {
        check();
        _exit(::testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0) << "in the child";
}

#endif
