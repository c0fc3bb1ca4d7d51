// vectors.h: reads published vector files of "Name = Value" lines.
#ifndef TESTS_SUPPORT_VECTORS_H
#define TESTS_SUPPORT_VECTORS_H

#include "support/files.h"

#include <map>
#include <string>
#include <vector>

// One case: the attributes of a run of "Name = Value" lines that a blank line ends. Bracketed lines
// ("[ENCRYPT]") set section for the cases after them; lines that begin with '#' are comments.
class VectorCase {
public:
    std::string section;
    std::size_t line = 0; // of its first attribute, for messages

    bool has(const std::string &name) const;
    // The value as it stands; asking for an attribute that is not there ends the test program.
    std::string text(const std::string &name);
    // The value as hexadecimal digits, or as characters where it stands in double quotes.
    Bytes bytes(const std::string &name);
    unsigned long number(const std::string &name);
    // Attributes that nobody asked for: a test that leaves one unread has a typo or a hole.
    std::vector<std::string> unread() const;

    void set(const std::string &name, const std::string &value);
    bool empty() const { return values_.empty(); }

private:
    struct Value {
        std::string text;
        bool read = false;
    };
    std::map<std::string, Value> values_;
};

std::vector<VectorCase> vector_cases(const std::string &name);

#endif
