// config.h: /etc/fn.conf, which says what serves each back end.
//
// A line is a back end and a location: "files sqlite:/var/fn/dsv_org.db". The back ends are nisplus,
// nis and files; the locations are in store.h. A line "default BACKEND" names the one of
// fn_ctx_handle_from_initial. Blanks and tabs separate; a '#' at the beginning of a word begins a
// comment; empty lines count for nothing. Nothing may be said twice. What is not said is as follows.
#ifndef XFN_CONFIG_H
#define XFN_CONFIG_H

#include <string_view>

namespace xfn {

constexpr unsigned back_end_count = 3;
constexpr std::size_t max_location = 1024;

struct Config {
    unsigned initial = 3;
    // By number less one.
    char locations[back_end_count][max_location + 1] = {
        "none:", "nis:", "sqlite:/var/fn/dsv_org.db"};
};

constexpr char config_path[] = "/etc/fn.conf";

// False if the text is malformed.
bool parse_config(std::string_view text, Config *config);

// FN_SUCCESS, also without the file; FN_E_CONFIGURATION_ERROR: it is malformed, too long (64 KiB) or
// cannot be read; FN_E_INSUFFICIENT_RESOURCES.
unsigned read_config(const char *path, Config *config);

} // namespace xfn

#endif
