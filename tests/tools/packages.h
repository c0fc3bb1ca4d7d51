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

    // A package of few iterations, so that tests are quick.
    static void make_package(const std::string &file, const std::string &owner,
                             const std::string &more = "") {
        must("keygen --iterations 1000 --passin file:$phrase --owner " + owner + " -o $" + file +
             " " + more);
    }
};

#endif
