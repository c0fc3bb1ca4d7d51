// Data-set files: what is read must come back when it is written anew, one item at a time.
#include "fuzz.h"

#include "../lib/qel/data_set_reader.h"

#include <string>

static void write_and_read_again(const QelDataSetItem &item) {
    if (item.length == 0)
        return;
    char *armour = nullptr;
    uint32_t length = 0;
    must(__qel_binary_2_rfc1421(item.data, item.length, &armour, &length) == QEL_OK);
    const std::string text =
        "-----BEGIN KEYPKG-----\n" + std::string(armour, length) + "\n-----END KEYPKG-----\n";
    std::free(armour);
    qel::DataSet again;
    must(parse_data_set(text.data(), static_cast<uint32_t>(text.size()), &again) == QEL_OK);
    must(convert_data_set(QEL_FORM_ARMOUR, &again) == QEL_OK && again.count() == 1);
    const QelDataSetItem &same = again.items().front();
    must(same.length == item.length && std::memcmp(same.data, item.data, item.length) == 0);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    qel::DataSet set;
    const QelStatus status =
        parse_data_set(reinterpret_cast<const char *>(data), static_cast<uint32_t>(size), &set);
    must(status == QEL_OK || status == QEL_ERR_FILE_FORMAT);
    must((set.count() != 0) == (status == QEL_OK));
    if (status == QEL_OK && convert_data_set(QEL_FORM_ARMOUR, &set) == QEL_OK)
        for (const QelDataSetItem &item : set.items())
            write_and_read_again(item);
    return 0;
}
