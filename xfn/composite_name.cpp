// composite_name.cpp: composite names and their texts.

#include "objects.h"

#include <algorithm>

namespace {

using xfn::CompositeName;
using xfn::String;

bool is_quote(char byte) {
    return byte == '"' || byte == '\'';
}

bool is_special(char byte) {
    return byte == '/' || byte == '\\' || is_quote(byte);
}

// Takes a text apart.
struct Reader {
    const char *at;
    char *component; // room for the rest of the text
    std::size_t size = 0;

    bool unescape(char quote) {
        const char behind = at[1];
        if (behind == '\0')
            return false;
        const bool special = quote == '\0' ? is_special(behind) : behind == quote || behind == '\\';
        component[size++] = special ? behind : '\\';
        at += special ? 2 : 1;
        return true;
    }

    // To the end of the component, where '/' or the end of the text stands.
    bool read_component(bool *is_quoted) {
        size = 0;
        const char quote = is_quote(*at) ? *at++ : '\0';
        const char end = quote != '\0' ? quote : '/';
        *is_quoted = quote != '\0';
        while (*at != '\0' && *at != end) {
            if (*at != '\\')
                component[size++] = *at++;
            else if (!unescape(quote))
                return false;
        }
        if (quote == '\0')
            return true;
        if (*at == '\0' || (at[1] != '/' && at[1] != '\0'))
            return false;
        ++at;
        return true;
    }

    bool read_all(FN_composite_name_t *name) {
        if (*at == '\0')
            return true;
        for (bool only_slashes = true;;) {
            bool is_quoted = false;
            if (!read_component(&is_quoted))
                return false;
            // A text of slashes only has as many components as slashes.
            only_slashes = only_slashes && size == 0 && !is_quoted;
            if (only_slashes && *at == '\0')
                return true;
            String string(xfn::make_string({component, size}));
            if (string == nullptr || !name->components.append(string.get()))
                return false;
            string.release();
            if (*at++ == '\0')
                return true;
        }
    }
};

// A component is written with backslashes: before what would end it, begin a quotation, or be read as
// an escape.
std::size_t write_component(std::string_view component, char *out) {
    std::size_t size = 0;
    const auto put = [&](char byte) {
        if (out != nullptr)
            out[size] = byte;
        ++size;
    };
    for (std::size_t i = 0; i < component.size(); ++i) {
        const char byte = component[i];
        if (byte == '/' || byte == '\\' || (i == 0 && is_quote(byte)))
            put('\\');
        put(byte);
    }
    return size;
}

std::size_t write_name(const FN_composite_name_t *name, char *out) {
    std::size_t size = 0;
    bool all_empty = true;
    for (std::size_t i = 0; i < name->components.count; ++i) {
        const auto place = [&] { return out != nullptr ? out + size : nullptr; };
        if (i != 0) {
            if (out != nullptr)
                *place() = '/';
            ++size;
        }
        const std::string_view component = xfn::view(name->components.items[i]);
        all_empty = all_empty && component.empty();
        size += write_component(component, place());
    }
    if (all_empty && name->components.count != 0) {
        if (out != nullptr)
            out[size] = '/';
        ++size;
    }
    return size;
}

bool append_copies(FN_composite_name_t *name, const FN_composite_name_t *from, std::size_t begin,
                   std::size_t end) {
    for (std::size_t i = begin; i < end; ++i)
        if (!fn_composite_name_append_comp(name, from->components.items[i]))
            return false;
    return true;
}

FN_composite_name_t *part(const FN_composite_name_t *name, std::size_t begin, std::size_t end) {
    CompositeName copy(fn_composite_name_create());
    return copy != nullptr && append_copies(copy.get(), name, begin, end) ? copy.release()
                                                                          : nullptr;
}

// Where the component at a position begins: positions count from 1.
std::size_t index_at(const FN_composite_name_t *name, const void *iter_pos) {
    const std::size_t number = xfn::Array<FN_string_t *>::number(iter_pos);
    return std::min(number != 0 ? number - 1 : 0, name->components.count);
}

const FN_string_t *content(FN_string_t *const *item) {
    return item != nullptr ? *item : nullptr;
}

int insert_copy(FN_composite_name_t *name, std::size_t at, const FN_string_t *component) {
    String copy(fn_string_copy(component));
    if (copy == nullptr || !name->components.insert(at, copy.get()))
        return 0;
    copy.release();
    return 1;
}

} // namespace

FN_composite_name_t *fn_composite_name_create() {
    return qel::allocate<FN_composite_name_t>();
}

FN_composite_name_t *fn_composite_name_from_str(const unsigned char *str) {
    if (str == nullptr)
        return nullptr;
    const auto *text = reinterpret_cast<const char *>(str);
    CompositeName name(fn_composite_name_create());
    const qel::Owned<char> component(static_cast<char *>(std::malloc(std::strlen(text) + 1)));
    if (name == nullptr || component == nullptr)
        return nullptr;
    Reader reader = {text, component.get()};
    return reader.read_all(name.get()) ? name.release() : nullptr;
}

FN_composite_name_t *fn_composite_name_from_string(const FN_string_t *str) {
    return fn_composite_name_from_str(fn_string_str(str, nullptr));
}

FN_composite_name_t *fn_composite_name_copy(const FN_composite_name_t *name) {
    return name != nullptr ? part(name, 0, name->components.count) : nullptr;
}

void fn_composite_name_destroy(FN_composite_name_t *name) {
    if (name == nullptr)
        return;
    for (FN_string_t *component : name->components)
        fn_string_destroy(component);
    std::free(name->components.items);
    std::free(name);
}

FN_string_t *fn_string_from_composite_name(const FN_composite_name_t *name, unsigned int *status) {
    FN_string_t *string = nullptr;
    if (name != nullptr) {
        const std::size_t size = write_name(name, nullptr);
        const qel::Owned<char> text(static_cast<char *>(std::malloc(size + 1)));
        if (text != nullptr) {
            write_name(name, text.get());
            string = xfn::make_string({text.get(), size});
        }
    }
    if (status != nullptr)
        *status = string != nullptr ? FN_SUCCESS
                  : name != nullptr ? FN_E_INSUFFICIENT_RESOURCES
                                    : FN_E_UNSPECIFIED_ERROR;
    return string;
}

int fn_composite_name_is_empty(const FN_composite_name_t *name) {
    return fn_composite_name_count(name) == 0;
}

unsigned int fn_composite_name_count(const FN_composite_name_t *name) {
    return name != nullptr ? static_cast<unsigned int>(name->components.count) : 0;
}

const FN_string_t *fn_composite_name_first(const FN_composite_name_t *name, void **iter_pos) {
    return content(name->components.first(iter_pos));
}

const FN_string_t *fn_composite_name_next(const FN_composite_name_t *name, void **iter_pos) {
    return content(name->components.next(iter_pos));
}

const FN_string_t *fn_composite_name_last(const FN_composite_name_t *name, void **iter_pos) {
    return content(name->components.last(iter_pos));
}

const FN_string_t *fn_composite_name_prev(const FN_composite_name_t *name, void **iter_pos) {
    return content(name->components.previous(iter_pos));
}

FN_composite_name_t *fn_composite_name_prefix(const FN_composite_name_t *name,
                                              const void *iter_pos) {
    return part(name, 0, index_at(name, iter_pos));
}

FN_composite_name_t *fn_composite_name_suffix(const FN_composite_name_t *name,
                                              const void *iter_pos) {
    return part(name, index_at(name, iter_pos), name->components.count);
}

int fn_composite_name_is_equal(const FN_composite_name_t *first, const FN_composite_name_t *second,
                               unsigned int *status) {
    if (status != nullptr)
        *status = FN_SUCCESS;
    return std::equal(first->components.begin(), first->components.end(),
                      second->components.begin(), second->components.end(),
                      [](const FN_string_t *one, const FN_string_t *two) {
                          return xfn::view(one) == xfn::view(two);
                      });
}

int fn_composite_name_prepend_comp(FN_composite_name_t *name, const FN_string_t *component) {
    return insert_copy(name, 0, component);
}

int fn_composite_name_append_comp(FN_composite_name_t *name, const FN_string_t *component) {
    return insert_copy(name, name->components.count, component);
}
