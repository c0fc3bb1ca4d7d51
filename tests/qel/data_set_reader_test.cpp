#include "../../lib/qel/data_set_reader.h"
#include "support/fault.h"
#include "support/files.h"

#include <gtest/gtest.h>

namespace {

const std::string begin = "-----BEGIN KEYPKG-----\n", end = "-----END KEYPKG-----\n";
const std::string begin_cert = "-----BEGIN CERTIFICATE-----\n";
const std::string end_cert = "-----END CERTIFICATE-----\n";

std::vector<std::string> items_of(const qel::DataSet &set) {
    std::vector<std::string> items;
    for (const QelDataSetItem &item : set.items())
        items.emplace_back(item.data, item.data + item.length);
    return items;
}

// Read from a buffer of its exact size, so that a sanitizer sees a step past it.
QelStatus parse(const std::string &text, std::vector<std::string> *items) {
    const std::vector<char> exact(text.begin(), text.end());
    qel::DataSet set;
    const QelStatus status =
        parse_data_set(exact.data(), static_cast<uint32_t>(exact.size()), &set);
    *items = items_of(set);
    EXPECT_EQ(items->empty(), status != QEL_OK);
    return status;
}

struct Row {
    const char *reason;
    std::string text;
    std::vector<std::string> items; // none: QEL_ERR_FILE_FORMAT
};

const Row rows[] = {
    {"a key package", begin + "YWJj\n" + end, {"YWJj\n"}},
    {"a certificate", begin_cert + "YWJj\n" + end_cert, {"YWJj\n"}},
    {"either END marker ends", begin + "YWJj\n" + end_cert, {"YWJj\n"}},
    {"the first of them", begin + "YWJj\n" + end_cert + "end", {"YWJj\n"}},
    {"as written anew, with an empty line", begin + "YWJj\n\n" + end, {"YWJj\n\n"}},
    {"nothing between the markers", begin + end, {""}},
    {"any character for the line feed", begin.substr(0, 22) + "xYWJj\n" + end, {"YWJj\n"}},
    {"which may be a dash", begin.substr(0, 22) + "-YWJj\n" + end, {"YWJj\n"}},
    {"but is there", begin.substr(0, 22) + end, {}},
    {"dashes that are no marker", begin + "--a-----BEGIN-----\n" + end, {"--a-----BEGIN-----\n"}},
    {"a NUL is a character", begin + std::string("a\0b", 3) + end, {std::string("a\0b", 3)}},
    {"no line feed at the end", begin + "YWJj\n" + end.substr(0, 20), {"YWJj\n"}},
    {"text without dashes follows", begin + "YWJj\n" + end + "the end", {"YWJj\n"}},
    {"a dash ends the file", begin + "YWJj\n" + end + "the end-", {"YWJj\n"}},
    {"a dash before the end", begin + "YWJj\n" + end + "the end-\n", {}},
    {"a second item", begin + "YWJj\n" + end + begin + "YWJj\n" + end, {}},
    {"a second item of the other kind",
     begin + "YQ==\n" + end + begin_cert + "YQ==\n" + end_cert,
     {}},
    {"a second item behind one more dash",
     begin + "YQ==\n" + end + "-" + begin + "Yg==\n" + end,
     {"YQ==\n", "Yg==\n"}},
    {"an empty file", "", {}},
    {"nothing but a marker", begin, {}},
    {"nothing but a marker, cut behind it", begin.substr(0, 22), {}},
    {"something before the marker", "\n" + begin + "YWJj\n" + end, {}},
    {"another marker", "-----BEGIN PKCS7-----\nYWJj\n" + end, {}},
    {"no END marker", begin + "YWJj\n", {}},
    {"an END marker that is cut", begin + "YWJj\n" + end.substr(0, 19), {}},
    {"another END marker", begin + "YWJj\n-----END PKCS7-----\n", {}},
};

TEST(DataSetReader, Text) {
    for (const Row &row : rows) {
        std::vector<std::string> items;
        EXPECT_EQ(parse(row.text, &items), row.items.empty() ? QEL_ERR_FILE_FORMAT : QEL_OK)
            << row.reason;
        EXPECT_EQ(items, row.items) << row.reason;
    }
}

TEST(DataSetReader, LongTextTakesItsTime) {
    std::string text;
    for (int i = 0; i < 20000; ++i)
        text += (i != 0 ? "-" : "") + begin + "YQ==\n" + end;
    std::vector<std::string> items;
    EXPECT_EQ(parse(text, &items), QEL_OK);
    EXPECT_EQ(items.size(), 20000u);
    EXPECT_EQ(parse(begin + std::string(1 << 20, '-'), &items), QEL_ERR_FILE_FORMAT);
}

TEST(DataSetReader, Forms) {
    const struct {
        const char *reason;
        int form;
        std::string text;
        QelStatus status;
        std::string bytes;
    } cases[] = {
        {"encodings", QEL_FORM_RAW, "YWJj\n", QEL_OK, "YWJj\n"},
        {"armour", QEL_FORM_ARMOUR, "YW\nJj\n\n", QEL_OK, "abc"},
        {"bad armour", QEL_FORM_ARMOUR, "YW*j\n", QEL_ERR_FROM_RFC1421, ""},
        {"no armour", QEL_FORM_ARMOUR, "", QEL_ERR_BAD_PARAM, ""},
        {"digits", QEL_FORM_HEX, "0x61 0x62\n#63", QEL_OK, "abc"},
        {"bad digits", QEL_FORM_HEX, "6g", QEL_ERR_BAD_PARAM, ""},
        {"another form", 4, "YWJj", QEL_ERR_BAD_PARAM, ""},
    };
    for (const auto &c : cases) {
        const std::string text = begin + c.text + end;
        qel::DataSet set;
        ASSERT_EQ(parse_data_set(text.data(), static_cast<uint32_t>(text.size()), &set), QEL_OK);
        EXPECT_EQ(convert_data_set(c.form, &set), c.status) << c.reason;
        EXPECT_EQ(items_of(set), std::vector<std::string>{c.bytes}) << c.reason;
    }
}

TEST(DataSetReader, EachAllocation) {
    const std::string text = begin + "YWJj\n" + end + "-" + begin + "YWJj\n" + end;
    fault::each_allocation([&] {
        qel::DataSet set;
        QelStatus status = parse_data_set(text.data(), static_cast<uint32_t>(text.size()), &set);
        if (status == QEL_OK)
            status = convert_data_set(QEL_FORM_ARMOUR, &set);
        EXPECT_EQ(status == QEL_OK, !fault::met());
    });
}

} // namespace
