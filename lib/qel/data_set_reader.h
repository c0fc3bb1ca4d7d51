// data_set_reader.h: the certificates or key packages that one repository holds, still encoded.
#ifndef QEL_DATA_SET_READER_H
#define QEL_DATA_SET_READER_H

#include <span>
#include <utility>

#include <lib/memory.h>
#include <qel/qelp.h>

namespace qel {

// What read_data_set reads: QEL_REPO_FILE, or one of those that deliver items by themselves, which is
// a repository with the kind that is asked of it on top.
inline constexpr uint32_t keypkgs_flag = 0x80000000;
inline constexpr uint32_t certificates_flag = 0x40000000;
inline constexpr uint32_t named_keypkgs = QEL_REPO_DSV | keypkgs_flag;
inline constexpr uint32_t registered_keypkgs = QEL_REPO_QELSERV | keypkgs_flag;
inline constexpr uint32_t named_certificates = QEL_REPO_DSV | certificates_flag;

// Items with their bytes.
class DataSet {
public:
    DataSet() = default;
    DataSet(const DataSet &) = delete;
    DataSet &operator=(const DataSet &) = delete;
    ~DataSet() { release(); }

    std::span<QelDataSetItem> items() const { return {items_, count_}; }
    uint32_t count() const { return count_; }

    // Takes the bytes of a list of items, in its order. QEL_ERR_NO_MEMORY.
    QelStatus take(QelItemList *list);

    // To the caller's caller, who frees the bytes of every item and the array.
    void hand_over(QelDataSetItem **items_out, uint32_t *count_out) {
        *items_out = std::exchange(items_, nullptr);
        *count_out = std::exchange(count_, 0);
    }

private:
    void release();

    QelDataSetItem *items_ = nullptr;
    uint32_t count_ = 0;
};

} // namespace qel

// Reads the items of a source, as they stand there: a file's in armour, the naming service's and the
// key server's encoded.
//   name  a file (null or "": standard input); a name of the naming service.
//   set   empty; and empty after a failure.
// A file holds one item (see store.h). QEL_ERR_FILE_FORMAT: it does not begin with a BEGIN marker, an
// END marker is missing, or something with a dash follows. The other statuses are those of
// __qel_read_input, dsv_get_..._given_user_name and __qel_get_qelserv_keypkg.
QelStatus read_data_set(QelContext *context, uint32_t source, const char *name, qel::DataSet *set);

// What a public function makes of a reader of repositories: checked arguments, cleared results.
using RepositoryReader = QelStatus(QelContext *context, int repository, const char *name,
                                   qel::DataSet *set);
QelStatus give_data_set(RepositoryReader *read, QelContext *context, int repository,
                        const char *name, QelDataSetItem **items_out, uint32_t *count_out);

// The items of a file, encoded: read_data_set and convert_data_set.
QelStatus read_data_set_file(QelContext *context, const char *name, qel::DataSet *set);

// What read_data_set makes of a file with this text.
QelStatus parse_data_set(const char *text, uint32_t length, qel::DataSet *set);

// Makes encodings of items in one form: QEL_FORM_RAW (they are encodings), QEL_FORM_ARMOUR,
// QEL_FORM_HEX. What decode_text returns; an item without text is QEL_ERR_BAD_PARAM.
QelStatus convert_data_set(int form, qel::DataSet *set);

#endif
