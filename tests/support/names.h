// names.h: a library context, and names from their printable form.
#ifndef TESTS_SUPPORT_NAMES_H
#define TESTS_SUPPORT_NAMES_H

#include "support/records.h"

#include <gtest/gtest.h>
#include <lib/context.h>

class NamesTest : public testing::Test {
protected:
    void SetUp() override {
        QelContext *made = nullptr;
        ASSERT_EQ(__qel_init(&made, nullptr, nullptr), QEL_OK);
        context.reset(made);
    }

    records::OwnedName name(const char *text) {
        QelName *parsed = nullptr;
        EXPECT_EQ(qel_str2dn(context.get(), text, &parsed), QEL_OK);
        return records::OwnedName(parsed);
    }

    qel::OwnedContext context;
};

#endif
