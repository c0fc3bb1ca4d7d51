// mark.cpp: handles that stand for files.
#include "environment.h"

#include <unistd.h>

namespace dencoder {
namespace {

// Takes a file out of the list; null when it is not in it.
MarkedFile *unlink_marked(OssEnvironment &environment, const void *handle) {
    for (MarkedFile **link = &environment.marked; *link != nullptr; link = &(*link)->next) {
        if (*link != handle)
            continue;
        MarkedFile *found = *link;
        *link = found->next;
        return found;
    }
    return nullptr;
}

} // namespace

void free_retired(OssEnvironment &environment) {
    while (environment.retired != nullptr) {
        MarkedFile *first = environment.retired;
        environment.retired = first->next;
        std::free(first);
    }
}

MarkedFile *find_marked(const OssEnvironment &environment, const void *handle) {
    for (MarkedFile *marked = environment.marked; marked != nullptr; marked = marked->next)
        if (marked == handle)
            return marked;
    return nullptr;
}

void drop_marked(OssEnvironment &environment, MarkedFile *marked) {
    if (unlink_marked(environment, marked) == nullptr)
        return;
    if (marked->temporary)
        unlink(marked->name);
    std::free(marked->name);
    std::free(marked);
}

} // namespace dencoder

using namespace dencoder;

void *ossMarkObj(OssEnvironment *environment, int kind, const char *file_name) {
    constexpr int file = 1;
    if (environment == nullptr || environment->table == nullptr || kind != file ||
        file_name == nullptr)
        return nullptr;
    auto *marked = static_cast<MarkedFile *>(allocate_record(sizeof(MarkedFile)));
    if (marked == nullptr)
        return nullptr;
    marked->name = strdup(file_name);
    if (marked->name == nullptr) {
        std::free(marked);
        return nullptr;
    }
    marked->next = environment->marked;
    environment->marked = marked;
    return marked;
}

void *ossUnmarkObj(OssEnvironment *environment, void *handle) {
    if (environment == nullptr || environment->table == nullptr)
        return nullptr;
    MarkedFile *marked = unlink_marked(*environment, handle);
    if (marked == nullptr)
        return nullptr;
    char *name = marked->name;
    marked->name = nullptr;
    marked->next = environment->retired;
    environment->retired = marked;
    return name;
}
