#include "support/fault.h"
#include "support/resolver.h"

#include <lib/context.h>
#include <lib/memory.h>
#include <qel/qelp.h>
#include <toolkit/toolkit.h>

#include <gtest/gtest.h>

namespace {

qel::OwnedContext make(const char *keyid, const char *host, QelStatus expected = QEL_OK) {
    QelContext *context = reinterpret_cast<QelContext *>(1);
    EXPECT_EQ(__qel_init(&context, keyid, host), expected);
    EXPECT_EQ(context == nullptr, expected != QEL_OK);
    return qel::OwnedContext(context);
}

TEST(Context, AFreshOneHoldsDefaultsAndNoOperation) {
    const qel::OwnedContext context = make(nullptr, nullptr);
    EXPECT_STREQ(context->certificate_directory, "/etc/qel/certs");
    EXPECT_EQ(context->spare_string, nullptr);
    EXPECT_STREQ(context->key_identifier, "default_keyid");
    EXPECT_STREQ(context->host_address, "0.0.0.0");
    EXPECT_EQ(context->session, nullptr);
    EXPECT_EQ(context->signature_algorithm, nullptr);
    EXPECT_EQ(context->digest_algorithm, nullptr);
    EXPECT_NE(context->asn1, nullptr);
    EXPECT_EQ(context->key_agreement, nullptr);
    EXPECT_EQ(context->multi_part, 0u);
    EXPECT_EQ(context->key_server, nullptr);
}

TEST(Context, KeyIdentifiers) {
    EXPECT_STREQ(make("", nullptr)->key_identifier, "default_keyid");
    EXPECT_STREQ(make("mail", nullptr)->key_identifier, "mail");
}

struct HostCase {
    const char *reason;
    const char *host;
    QelStatus status;
    const char *address;
};

const HostCase kHostCases[] = {
    {"a dotted address", "10.1.2.3", QEL_OK, "10.1.2.3"},
    {"a short dotted address stays as it was given", "10.1", QEL_OK, "10.1"},
    {"a name becomes its first address", "host.example", QEL_OK, "192.0.2.7"},
    {"an unknown name", "nowhere.example", QEL_ERR_BAD_PARAM, nullptr},
    {"a name without addresses", "addressless.example", QEL_ERR_BAD_PARAM, nullptr},
    {"no name at all", "", QEL_ERR_BAD_PARAM, nullptr},
    {"all ones is taken for a name", "255.255.255.255", QEL_ERR_BAD_PARAM, nullptr},
};

TEST(Context, HostAddresses) {
    for (const HostCase &row : kHostCases) {
        SCOPED_TRACE(row.reason);
        const qel::OwnedContext context = make(nullptr, row.host, row.status);
        if (context != nullptr) {
            EXPECT_STREQ(context->host_address, row.address);
        }
    }
}

TEST(Context, IsMadeWholeOrNotAtAll) {
    fault::each_allocation([] {
        QelContext *context = reinterpret_cast<QelContext *>(1);
        const QelStatus status = __qel_init(&context, "mail", "host.example");
        EXPECT_EQ(status, fault::met() ? QEL_ERR_NO_MEMORY : QEL_OK);
        EXPECT_EQ(context == nullptr, fault::met());
        if (context != nullptr)
            qel_end(context);
    });
}

TEST(Context, NullArguments) {
    EXPECT_EQ(__qel_init(nullptr, nullptr, nullptr), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(qel_end(nullptr), QEL_ERR_BAD_PARAM);
}

// That nothing stays behind shows in a run that looks for leaks.
TEST(Context, EndReleasesOperationsUnderWay) {
    QelContext *context = make(nullptr, nullptr).release();
    context->spare_string = strdup("spare");
    ASSERT_EQ(C_OpenSession(0, 0, nullptr, nullptr, &context->session), 0u);
    toolkit::B_ALGORITHM_OBJ agreement = nullptr;
    ASSERT_EQ(toolkit::B_CreateAlgorithmObject(&agreement), 0);
    context->key_agreement = agreement;
    EXPECT_EQ(qel_end(context), QEL_OK);
}

TEST(Context, EndOfAnEmptyOne) {
    EXPECT_EQ(qel_end(qel::allocate<QelContext>()), QEL_OK);
}

} // namespace
