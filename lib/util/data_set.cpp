// data_set.cpp: files of credentials, one after another between marker lines.

#include <util/output.h>

#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include <util/user.h>

namespace {

const ArmourMarkers *markers_of(int kind) {
    return kind == QEL_ITEM_CERTIFICATE || kind == QEL_ITEM_KEYPKG ? armour_markers(kind) : nullptr;
}

void add_item(Output *output, int kind, int form, const uint8_t *data, uint32_t length,
              const char *line_end) {
    const ArmourMarkers *around = markers_of(kind);
    if (around != nullptr)
        output->add(around->begin).add("\n");
    output->add_data(form, data, length, 0, armour_width).add(line_end);
    if (around != nullptr)
        output->add(around->end).add("\n");
}

} // namespace

QelStatus __qel_dump_append_and_delimit(int kind, const char *file_name, int form,
                                        const uint8_t *data, uint32_t length) {
    if (file_name == nullptr || *file_name == '\0')
        return QEL_ERR_NO_FILE;
    Output output;
    add_item(&output, kind, form, data, length, "\n");
    return output.write_file(file_name, O_WRONLY | O_CREAT | O_APPEND);
}

QelStatus __qel_dump_data_set(int kind, const char *file_name, int form, uint32_t item_count,
                              const QelDataSetItem *items) {
    if (items == nullptr || item_count == 0)
        return QEL_OK;
    qel::Owned<char> path;
    if (file_name == nullptr || *file_name == '\0') {
        if (const QelStatus status = find_hidden_keypkg_file(&path); status != QEL_OK)
            return status;
        file_name = path.get();
    }

    // The first item has an empty line behind its text.
    const char *line_end = form == QEL_FORM_RAW ? "\n" : "\n\n";
    Output output;
    bool has_items = false;
    for (uint32_t i = 0; i < item_count; ++i) {
        if (items[i].length == 0)
            continue;
        add_item(&output, kind, form, items[i].data, items[i].length, line_end);
        line_end = "\n";
        has_items = true;
    }
    if (!has_items)
        return unlink(file_name) == 0 ? QEL_OK : QEL_ERR_GENERAL;
    return output.write_file(file_name, O_WRONLY | O_CREAT | O_TRUNC);
}
