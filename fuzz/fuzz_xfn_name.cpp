// Composite names: what is read is written so that the same is read again.
#include <xfn/xfn.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), size);
    FN_composite_name_t *name =
        fn_composite_name_from_str(reinterpret_cast<const unsigned char *>(text.c_str()));
    if (name == nullptr)
        return 0;
    FN_string_t *written = fn_string_from_composite_name(name, nullptr);
    FN_composite_name_t *again = fn_composite_name_from_string(written);
    if (again == nullptr || !fn_composite_name_is_equal(name, again, nullptr))
        std::abort();
    FN_string_t *settled = fn_string_from_composite_name(again, nullptr);
    if (fn_string_compare(written, settled, FN_STRING_CASE_SENSITIVE, nullptr) != 0)
        std::abort();
    fn_string_destroy(settled);
    fn_string_destroy(written);
    fn_composite_name_destroy(again);
    fn_composite_name_destroy(name);
    return 0;
}
