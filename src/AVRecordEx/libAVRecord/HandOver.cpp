#include "HandOver.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>

#include "CardFile.h"
#include "CardHealth.h"
#include "RecordFormat.h"
#include "Signal.h"
#include "Thread.h"
#include "libAVRecord.h"
#include "libLog.h"

using record_file::FileHeadOffset;
using record_file::KeyFrameRecordOffset;
using record_file::SectionHeadOffset;

namespace {

constexpr uint64_t kPage = 4096;                       // what the system reads at least
constexpr uint32_t kNextFileAhead = 16 * 1024 * 1024;  // bytes of stream data before the limit

std::atomic<int> g_interval_ms{RECORD_HAND_OVER_MS};

// Whether a place could be read changes nothing: the write there would only wait a little longer.
void Touch(card::Kind kind, int fd, uint64_t offset) {
    char byte;
    card::ReadAt(kind, fd, offset, &byte, 1);
}

void TouchKeyRecords(int stream_fd, uint32_t key_records) {
    const uint64_t place = KeyFrameRecordOffset(key_records);
    Touch(card::Kind::kRecord, stream_fd, place);
    if (place + kPage < RECORD_FILE_SIZE) {
        Touch(card::Kind::kRecord, stream_fd, place + kPage);
    }
}

// Reads the places of the index and the file that a run beginning there will write into in part.
void ReadAhead(int index_fd, int stream_fd, uint32_t file_no, uint32_t stream_end, uint32_t key_records) {
    Touch(card::Kind::kIndex, index_fd, 0);
    Touch(card::Kind::kIndex, index_fd, FileHeadOffset(file_no));
    for (uint64_t slots = 0; slots < RECORD_SECTION_BLOCK; slots += kPage) {
        Touch(card::Kind::kIndex, index_fd, SectionHeadOffset(file_no, 0) + slots);
    }
    Touch(card::Kind::kRecord, stream_fd, stream_end);
    TouchKeyRecords(stream_fd, key_records);
}

// What the card refused counts as written for the system, and asked again it would say so: those bytes are written once
// more.  They are final, so nobody else writes them, and the system still has them in memory or the card has them.
[[gnu::noinline]] bool WriteAgain(int fd, uint64_t first, uint64_t end) {
    char bytes[16 * 1024];
    while (first < end) {
        const auto length = static_cast<int64_t>(std::min<uint64_t>(end - first, sizeof bytes));
        if (card::ReadAt(card::Kind::kRecord, fd, first, bytes, length) != card::Result::kDone ||
            card::WriteAt(card::Kind::kRecord, fd, first, bytes, length) != card::Result::kDone) {
            return false;
        }
        first += static_cast<uint64_t>(length);
    }
    return true;
}

}  // namespace

int AVRecordHandOverSet(int milliseconds) {
    g_interval_ms = std::clamp(milliseconds, RECORD_HAND_OVER_MIN_MS, RECORD_HAND_OVER_MAX_MS);
    return 0;
}

int AVRecordReadAhead(const RecordFileInfoHead_S* file) {
    if (file == nullptr) {
        return -1;
    }
    const Descriptor index = card::OpenIndex(AVFILE_READ);
    const Descriptor stream = card::OpenRecordFile(file->m_u32FileInfoHeadNo, AVFILE_READ);
    if (!index.IsOpen() || !stream.IsOpen()) {
        return -1;
    }
    ReadAhead(index.Get(), stream.Get(), file->m_u32FileInfoHeadNo, file->m_u32RecordFileSumLenth,
              file->m_u32RecordKeyFrameSum);
    return 0;
}

// What the thread of one run works on.  `busy` is set by the one that starts it and cleared by the thread at its end.
struct HandOver::Job {
    std::atomic<bool> busy{false};
    std::atomic<uint32_t> stream_end{0};
    std::atomic<uint32_t> key_records{0};
    std::atomic<uint32_t> heads{0};  // how often they were written
    Begin begin{};
    Descriptor index;
    Descriptor stream;
    Signal over;  // the run is
    int interval_ms = RECORD_HAND_OVER_MS;

    // The thread's own.
    uint32_t stream_handed = 0;
    uint32_t stream_refused = 0;  // end of what the card may have refused since
    uint32_t key_records_handed = 0;
    uint32_t key_records_refused = 0;
    uint32_t heads_handed = 0;
    bool next_file_is_read = false;

    bool Prepare(const Begin& begin_now);
    bool HandOverBytes(uint64_t first, uint64_t end, uint64_t refused) const;
    bool HandOverStream();
    bool HandOverKeyRecords(uint32_t records);
    void HandOverOnce();
    void ReadNext();
    void Close();
};

// A run's thread may still wait for a card that hangs when the next one begins; a third one would wait for the same.
struct HandOver::Jobs {
    Job all[2];
};

constinit Immortal<HandOver::Jobs> HandOver::jobs_;

HandOver::Job* HandOver::FreeJob() {
    for (Job& job : jobs_.value.all) {
        if (!job.busy.load(std::memory_order_acquire)) {
            return &job;
        }
    }
    return nullptr;
}

bool HandOver::Job::Prepare(const Begin& begin_now) {
    begin = begin_now;
    stream_end = stream_handed = begin.stream_end;
    key_records = key_records_handed = begin.key_records;
    stream_refused = key_records_refused = 0;
    heads = heads_handed = 0;
    next_file_is_read = false;
    interval_ms = g_interval_ms;
    index = Descriptor(fcntl(begin.index_fd, F_DUPFD_CLOEXEC, 0));
    stream = Descriptor(fcntl(begin.stream_fd, F_DUPFD_CLOEXEC, 0));
    over.Clear();
    return index.IsOpen() && stream.IsOpen();
}

void HandOver::Job::Close() {
    index.Close();
    stream.Close();
}

// Bytes of the record file; those below `refused` once more.
bool HandOver::Job::HandOverBytes(uint64_t first, uint64_t end, uint64_t refused) const {
    const bool is_refused = first < refused;  // seldom: its buffer is most of the stack that this thread ever uses
    return (!is_refused || WriteAgain(stream.Get(), first, std::min(refused, end))) &&
           card::SyncRange(card::Kind::kRecord, stream.Get(), first, end - first) == card::Result::kDone;
}

// Stream data up to what is written now; what comes in meanwhile follows at once, so that the heads find it there.
bool HandOver::Job::HandOverStream() {
    constexpr int kTries = 3;  // the writer may be as fast as the card
    for (int i = 0; i < kTries; ++i) {
        const uint32_t end = stream_end.load(std::memory_order_acquire);
        if (end == stream_handed) {
            return true;
        }
        if (!HandOverBytes(stream_handed, end, stream_refused)) {
            stream_refused = end;
            return false;
        }
        stream_handed = end;
        card::RecordFileTook();
    }
    return true;
}

// However many they are: an interval may be a minute long, and one that failed is tried again with the next.
bool HandOver::Job::HandOverKeyRecords(uint32_t records) {
    const uint64_t first = KeyFrameRecordOffset(key_records_handed);
    const uint64_t end = std::max(KeyFrameRecordOffset(records), first + kPage);
    if (!HandOverBytes(first, end, KeyFrameRecordOffset(key_records_refused))) {
        key_records_refused = records;
        return false;
    }
    key_records_handed = records;
    return true;
}

// Stream data, the key-frame records that point into it, and the heads that count both, in this order.  Heads written
// after the last look at the stream may go with them: the frames they name follow at once.
void HandOver::Job::HandOverOnce() {
    const uint32_t heads_now = heads.load(std::memory_order_acquire);
    if (heads_now == heads_handed) {
        return;
    }
    const uint32_t records = key_records.load(std::memory_order_relaxed);
    const bool is_handed = HandOverStream() && HandOverKeyRecords(records) &&
                           card::SyncRange(card::Kind::kIndex, index.Get(), 0, card::kToTheEnd) == card::Result::kDone;
    if (is_handed) {
        heads_handed = heads_now;
    }
    HandOverStream();
}

void HandOver::Job::ReadNext() {
    TouchKeyRecords(stream.Get(), key_records);
    if (next_file_is_read || stream_handed + kNextFileAhead < RECORD_STREAM_LIMIT) {
        return;
    }
    next_file_is_read = true;
    const Descriptor next = card::OpenRecordFile(begin.next_file_no, AVFILE_READ);
    if (next.IsOpen()) {
        ReadAhead(index.Get(), next.Get(), begin.next_file_no, 0, 0);
    }
}

void* HandOver::Thread(void* argument) {
    prctl(PR_SET_NAME, "HandOverThread");
    Job& job = *static_cast<Job*>(argument);
    for (bool is_over = false; !is_over;) {
        is_over = job.over.WaitFor(job.interval_ms);
        job.HandOverOnce();
        if (!is_over) {
            job.ReadNext();
        }
    }
    job.Close();
    job.busy.store(false, std::memory_order_release);
    return nullptr;
}

bool HandOver::Start(const Begin& begin) {
    Job* const job = FreeJob();
    if (job == nullptr) {
        LOG_ERROR(" : the card hangs, what is recorded is handed to it without haste\n");
        return false;
    }
    int error = job->Prepare(begin) ? 0 : errno;
    if (error == 0) {
        pthread_t thread;
        job->busy = true;
        error = StartThread(thread, ThreadEnd::kDetached, Thread, job);
    }
    if (error != 0) {
        job->Close();
        job->busy = false;
        LOG_ERROR(" : no steady hand-over to the card in this run: %s\n", std::strerror(error));
        return false;
    }
    job_ = job;
    return true;
}

void HandOver::StreamWritten(uint32_t stream_end) {
    if (job_ != nullptr) {
        job_->stream_end.store(stream_end, std::memory_order_release);
    }
}

void HandOver::HeadsWritten(uint32_t key_records) {
    if (job_ != nullptr) {
        job_->key_records.store(key_records, std::memory_order_relaxed);
        job_->heads.fetch_add(1, std::memory_order_release);
    }
}

void HandOver::Stop() {
    if (job_ == nullptr) {
        return;
    }
    job_->over.Set();
    job_ = nullptr;
}
