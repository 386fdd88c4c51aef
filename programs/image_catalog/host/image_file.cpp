#include "image_file.h"

#include "catalog_memory.h"
#include "foundation/date.h"
#include "foundation/util.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr UINT FROM_START = 0;
constexpr UINT FROM_END = 2;

// The checksum needs a file in one block, so memory limits a file's size: one large file at a time, of at
// most a quarter of the machine's memory, beside small ones.
constexpr uint64_t LARGE_FILE_BYTES = UINT64_C(64) << 20;
constexpr uint64_t LARGEST_PIECE = UINT64_C(1) << 24;  // of one read, or one step of the digest

uint64_t largest_file_bytes()
{
    return static_cast<uint64_t>(sysconf(_SC_PHYS_PAGES)) * static_cast<uint64_t>(sysconf(_SC_PAGESIZE)) / 4;
}

bool report_file_problem(file_report &report, const CHAR *reason)
{
    OS_strncpy(report.facts.problem, reason, IMAGE_PROBLEM_SIZE - 1);
    return false;
}

// An open file, closed at the end of its scope.
class open_file {
public:
    explicit open_file(INT descriptor) : descriptor_(descriptor) {}
    ~open_file()
    {
        if (is_open())
            OS_close(descriptor_);
    }
    open_file(const open_file &) = delete;
    open_file &operator=(const open_file &) = delete;
    bool is_open() const { return descriptor_ >= 0; }
    INT descriptor() const { return descriptor_; }

private:
    INT descriptor_;
};

// The turn of a large file; for a small one there is nothing to wait for.
class large_file_turn {
public:
    large_file_turn(LPVOID identifier, uint64_t bytes)
    {
        if (bytes > LARGE_FILE_BYTES)
            OS_mutex_open(identifier, nullptr, &handle_);
    }
    ~large_file_turn() { OS_mutex_release(handle_); }
    large_file_turn(const large_file_turn &) = delete;
    large_file_turn &operator=(const large_file_turn &) = delete;

private:
    LPVOID handle_ = nullptr;  // released without effect
};

// Left empty for a date outside 1601 to 9999.
void store_date(int64_t epoch_seconds, file_report &report)
{
    constexpr int64_t year_1601 = INT64_C(-11644473600);
    constexpr int64_t year_10000 = INT64_C(253402300800);
    if (epoch_seconds < year_1601 || epoch_seconds >= year_10000)
        return;
    ZT_DATETIME moment;
    OS_epoch_to_date(&moment, static_cast<double>(epoch_seconds));
    const ZT_DATE date = {moment.year, moment.month, moment.day};
    convert_ZT_DATE_to_DATE(&date, report.modified);
}

// Looked at before it is opened: opening a pipe or a device may wait, or do something.
bool is_regular_file(const CHAR *path, file_report &report)
{
    struct stat facts = {};
    if (stat(path, &facts) != 0) {
        report_platform_problem(report, "cannot be opened");
        return false;
    }
    if (!S_ISREG(facts.st_mode))
        return report_file_problem(report, "is no regular file");
    store_date(facts.st_mtime, report);
    return true;
}

INT open_for_reading(const CHAR *path, file_report &report)
{
    if (!is_regular_file(path, report))
        return -1;
    // Without waiting, should the path have come to mean a pipe in the meantime.
    const INT descriptor = OS_open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0);
    if (descriptor < 0)
        report_platform_problem(report, "cannot be opened");
    return descriptor;
}

// As many of `count` bytes as the file has from here on; fewer than that, with a reason, after an error.
uint64_t read_bytes(INT descriptor, BYTE *bytes, uint64_t count, file_report &report)
{
    uint64_t done = 0;
    while (done < count) {
        const uint64_t piece = count - done < LARGEST_PIECE ? count - done : LARGEST_PIECE;
        const LONG step = OS_read(descriptor, bytes + done, static_cast<UINT>(piece));
        if (step < 0 && errno == EINTR)
            continue;
        if (step < 0)
            report_platform_problem(report, "cannot be read");
        if (step <= 0)
            break;
        done += static_cast<uint64_t>(step);
    }
    return done;
}

image_kind read_kind(INT descriptor, file_report &report)
{
    BYTE first_bytes[SIGNATURE_SIZE] = {};
    const uint64_t count = read_bytes(descriptor, first_bytes, SIGNATURE_SIZE, report);
    return recognise_kind(first_bytes, count);
}

void compute_digests(const BYTE *bytes, uint64_t size, file_report &report)
{
    ZT_MD5_CONTEXT md5;
    MD5Init(&md5);
    for (uint64_t done = 0; done < size; done += LARGEST_PIECE) {
        const uint64_t piece = size - done < LARGEST_PIECE ? size - done : LARGEST_PIECE;
        MD5Update(&md5, bytes + done, static_cast<UINT>(piece));
    }
    MD5Final(&md5);
    OS_memcpy(report.md5, md5.digest, sizeof report.md5);
    report.crc32 = static_cast<uint32_t>(ZR_util_CRC_calc(bytes, size));
    report.is_read = true;
}

// The whole file under `tag`; null, with a reason, when it cannot be had.
const BYTE *read_whole_file(INT descriptor, uint64_t tag, file_report &report)
{
    auto *bytes =
        report.bytes <= largest_file_bytes() ? static_cast<BYTE *>(memory_alloc(tag, report.bytes)) : nullptr;
    if (bytes == nullptr) {
        OS_sprintf(report.facts.problem, "its %llu bytes do not fit into memory",
                   static_cast<unsigned long long>(report.bytes));
        return nullptr;
    }
    OS_seek(descriptor, 0, FROM_START);
    if (read_bytes(descriptor, bytes, report.bytes, report) == report.bytes)
        return bytes;
    if (!report.has_problem())
        report_file_problem(report, "became shorter while it was read");
    return nullptr;
}

void examine_content(const image_reader &reader, const BYTE *bytes, file_report &report)
{
    compute_digests(bytes, report.bytes, report);
    if (report.kind == image_kind::unknown) {
        report_file_problem(report, "is no image of a known kind");
        return;
    }
    const IMAGE_MODULE_READ read = modules_reader(reader.modules, report.kind, report.facts);
    if (read != nullptr)
        read(bytes, report.bytes, &report.facts);
}

}  // namespace

bool read_image_file(const image_reader &reader, const CHAR *path, bool named, file_report &report)
{
    const open_file file(open_for_reading(path, report));
    if (!file.is_open())
        return true;
    const LONG size = OS_seek(file.descriptor(), 0, FROM_END);
    if (size < 0 || OS_seek(file.descriptor(), 0, FROM_START) != 0) {
        report_platform_problem(report, "cannot be read");
        return true;
    }
    report.kind = read_kind(file.descriptor(), report);
    if (report.has_problem())
        return true;
    if (report.kind == image_kind::unknown && !named)
        return false;
    report.bytes = static_cast<uint64_t>(size);
    report.is_sized = true;
    if (size == 0) {
        report_file_problem(report, "is empty");
        return true;
    }
    const large_file_turn turn(reader.large_files, report.bytes);
    const uint64_t tag = memory_tag();
    const BYTE *bytes = read_whole_file(file.descriptor(), tag, report);
    if (bytes != nullptr)
        examine_content(reader, bytes, report);
    memory_free_all(tag);
    return true;
}

void report_platform_problem(file_report &report, const CHAR *what)
{
    CHAR words[128];
    OS_sprintf(report.facts.problem, "%s: %.128s", what, strerror_r(errno, words, sizeof words));
}
