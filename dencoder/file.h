// file.h: contents that are kept in files pass in blocks.
#ifndef DENCODER_FILE_H
#define DENCODER_FILE_H

#include "reader.h"

namespace dencoder {

// An open file, closed at the end of its scope.
class FileDescriptor {
public:
    FileDescriptor() = default;
    FileDescriptor(const FileDescriptor &) = delete;
    FileDescriptor &operator=(const FileDescriptor &) = delete;
    ~FileDescriptor() { close(); }
    void open(int number) { number_ = number; }
    int number() const { return number_; }
    // False if the system reports that what was written is lost.
    bool close();

private:
    int number_ = -1;
};

// A file that a reader looks at through a window.
struct FileInput {
    FileDescriptor descriptor;
    OwnedBytes window;
    uint32_t size = 0;
};

// Opens a regular file, of less than 4 GiB, and a reader at its start.
bool read_file(OssEnvironment &environment, const MarkedFile &marked, FileInput &input,
               Reader &reader);

// Makes an empty file of mode 0600 in the folder for temporary files, with a handle, or null.
MarkedFile *mark_temporary(OssEnvironment &environment, FileDescriptor &descriptor);

// Opens a file and empties it; one that is made gets mode 0600.
bool open_for_writing(OssEnvironment &environment, const MarkedFile &marked,
                      FileDescriptor &descriptor);
// Closes it. Unless all is well and size octets have been written, it is emptied first.
bool end_writing(FileDescriptor &descriptor, bool all_well, uint32_t size);
// Whether both handles lead to one file.
bool is_same_file(const MarkedFile &a, const MarkedFile &b);

bool write_all(int descriptor, const uint8_t *bytes, std::size_t size);

} // namespace dencoder

#endif
