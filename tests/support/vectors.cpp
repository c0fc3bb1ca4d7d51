#include "support/vectors.h"

#include <cstdio>
#include <cstdlib>
#include <sstream>

namespace {

std::string trimmed(const std::string &text) {
    const std::size_t first = text.find_first_not_of(" \t\r");
    if (first == std::string::npos)
        return "";
    return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

} // namespace

bool VectorCase::has(const std::string &name) const {
    return values_.count(name) != 0;
}

std::string VectorCase::text(const std::string &name) {
    const auto found = values_.find(name);
    if (found == values_.end()) {
        std::fprintf(stderr, "vectors, line %zu: no attribute %s\n", line, name.c_str());
        std::abort();
    }
    found->second.read = true;
    return found->second.text;
}

Bytes VectorCase::bytes(const std::string &name) {
    const std::string value = text(name);
    if (value.size() >= 2 && value.front() == '"' && value.back() == '"')
        return bytes_of(value.substr(1, value.size() - 2));
    return from_hex(value);
}

unsigned long VectorCase::number(const std::string &name) {
    return std::stoul(text(name));
}

std::vector<std::string> VectorCase::unread() const {
    std::vector<std::string> names;
    for (const auto &[name, value] : values_)
        if (!value.read)
            names.push_back(name);
    return names;
}

void VectorCase::set(const std::string &name, const std::string &value) {
    values_[name].text = value;
}

std::vector<VectorCase> vector_cases(const std::string &name) {
    std::vector<VectorCase> cases;
    VectorCase current;
    const auto finish = [&] {
        if (!current.empty())
            cases.push_back(current);
        const std::string section = current.section;
        current = VectorCase();
        current.section = section;
    };
    std::istringstream lines(text_of(vector_file(name)));
    std::string line;
    for (std::size_t number = 1; std::getline(lines, line); ++number) {
        line = trimmed(line);
        if (line.empty()) {
            finish();
        } else if (line[0] == '[') {
            finish();
            current.section = line.substr(1, line.find(']') - 1);
        } else if (line[0] != '#') {
            const std::size_t equals = line.find('=');
            if (equals == std::string::npos)
                continue;
            if (current.empty())
                current.line = number;
            current.set(trimmed(line.substr(0, equals)), trimmed(line.substr(equals + 1)));
        }
    }
    finish();
    return cases;
}
