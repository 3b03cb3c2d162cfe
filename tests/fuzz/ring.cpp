// A stream reader on a hostile ring with a hostile media server: every byte it touches and hands out lies in the
// segment, what it hands out is the frame that lies there, and it never spins: between two sleeps it moves on.
#include "FrameReader.h"

#include <map>

#include "Server.h"

namespace {

using fuzz::Server;

constexpr int kHeader = sizeof(AVDataInfo);
constexpr int kSleepsMax = 4000;  // after the input has ended and the reader was told to stop
constexpr int kStepsMax = 20000;  // between two sleeps: more than records fit into a ring
constexpr size_t kPage = 4096;

// The reader's view of the segment attached last: one that follows a new ring lets go of the old one afterwards.
fuzz::Bytes g_view;
std::map<const void*, size_t> g_attached;  // bytes of each
std::atomic<int> g_run;
int g_stream;
int g_steps;
int g_sleeps_at_end;

constexpr uint8_t kStarts[][5] = {{0, 0, 0, 1, 0x67}, {0, 0, 0, 1, 0x41}, {0, 0, 0, 1, 0x40}, {0xFF, 0xD8, 0, 0, 0}};
uint32_t g_serial;
int g_at;  // where the server writes next

// One record, mostly as a media server writes it.
void Put(fuzz::Input& in) {
    const uint8_t how = in.Byte();
    AVDataInfo header{};
    header.AVDataCheck = AVDATA_CHECK_WORD;
    header.SerialNumber = ++g_serial;
    header.AVSource = how >> 7;
    header.EndFlag = AVDATA_END_FRAME;
    header.AVDataLen = in.Byte();
    if (how % 8 == 1) header.SerialNumber = g_serial = in.Word();
    if (how % 8 == 2) header.EndFlag = in.Byte();
    if (how % 8 == 3) header.AVDataLen = static_cast<int32_t>(in.Word());
    if (how % 8 == 4) g_at = in.Half();
    if (how % 8 == 5) header.AVDataCheck = static_cast<int32_t>(in.Word());
    const int size = Server::kSizes[g_stream];
    if (g_at + kHeader + 256 > size) g_at = 0;
    uint8_t* const at = Server::Instance().Base(g_stream) + g_at;
    std::memcpy(at, &header, sizeof header);
    std::memcpy(at + kHeader, kStarts[how >> 3 & 3], 5);
    g_at += kHeader + (header.AVDataLen & 0xFF);
}

void Serve(unsigned) {
    g_steps = 0;
    Server& server = Server::Instance();
    fuzz::Input& in = server.In();
    if (in.Empty()) {
        g_run = 0;
        MUST(++g_sleeps_at_end < kSleepsMax);
        return;
    }
    AVMsgBuf message;
    if (server.Asked(message)) {
        const uint8_t how = in.Byte();
        message.video_pos = how % 2 == 0 ? in.Half() : how % 4 == 1 ? in.Word() : static_cast<uint32_t>(g_at);
        server.Answer(message);
        return;
    }
    const uint8_t act = in.Byte();
    if (act % 4 < 2) {
        Put(in);
    } else if (act % 4 == 2) {
        server.Base(g_stream)[in.Half() % Server::kSizes[g_stream]] = in.Byte();
    } else if (act % 64 == 7) {
        server.RenewRing(g_stream);
    }
}

int MayGoOn(int) {
    MUST(++g_steps < kStepsMax);
    fuzz::Input& in = Server::Instance().In();
    return in.Empty() || in.Byte() % 64 != 63 ? 1 : 0;
}

int Take(int kind, int stream, char* bytes, AVDataInfo* header) {
    const auto* const data = reinterpret_cast<const uint8_t*>(bytes);
    MUST(stream == g_stream && kind == header->AVSource);
    MUST(header->AVDataCheck == AVDATA_CHECK_WORD && header->EndFlag == AVDATA_END_FRAME);
    MUST(data >= g_view.data() + kHeader && data <= g_view.data() + g_view.size());
    MUST(header->AVDataLen >= 0 && header->AVDataLen <= g_view.data() + g_view.size() - data);
    MUST(std::memcmp(data - kHeader, header, kHeader) == 0);
    // The server overtakes the reader, in the middle of its work.
    fuzz::Input& in = Server::Instance().In();
    for (int left = in.Empty() ? 0 : in.Byte() % 64 - 60; left > 0; --left) Put(in);
    AVDataInfo now;
    std::memcpy(&now, data - kHeader, kHeader);
    const bool same = now.AVDataCheck == header->AVDataCheck && now.SerialNumber == header->SerialNumber &&
                      now.AVDataLen == header->AVDataLen && now.EndFlag == header->EndFlag;
    MUST((AVStreamFrameIntact(bytes, header) == 1) == same);
    uint8_t sum = 0;
    for (int i = 0; i < header->AVDataLen; ++i) sum = static_cast<uint8_t>(sum + data[i]);
    std::memset(header, sum, sizeof *header);  // the reader's own copy: it does not rely on it
    return 0;
}

}  // namespace

// A segment ends where it ends, not with its last page, and nothing lies after it.
extern "C" void* shmat(int id, const void* address, int flags) noexcept {
    struct shmid_ds status {};
    MUST(shmctl(id, IPC_STAT, &status) == 0);
    const size_t whole = (status.shm_segsz + kPage - 1) / kPage * kPage;
    auto* const room =
        static_cast<uint8_t*>(mmap(nullptr, whole + 2 * kPage, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    MUST(room != MAP_FAILED && address == nullptr);
    const long attached = syscall(SYS_shmat, id, room + kPage, flags | SHM_REMAP);
    MUST(attached == reinterpret_cast<long>(room + kPage));
    g_view = {room + kPage, status.shm_segsz};
    g_attached[room + kPage] = status.shm_segsz;
    ASAN_POISON_MEMORY_REGION(room + kPage + status.shm_segsz, whole - status.shm_segsz);
    return room + kPage;
}

extern "C" int shmdt(const void* address) noexcept {
    const auto view = g_attached.find(address);
    MUST(view != g_attached.end());
    auto* const base = static_cast<const uint8_t*>(address);
    const size_t whole = (view->second + kPage - 1) / kPage * kPage;
    g_attached.erase(view);
    ASAN_UNPOISON_MEMORY_REGION(base, whole);
    MUST(syscall(SYS_shmdt, base) == 0);
    MUST(munmap(const_cast<uint8_t*>(base) - kPage, whole + 2 * kPage) == 0);
    return 0;
}

void fuzz::Feed(Input& in) {
    Server::Instance().Begin(in, Serve);
    g_stream = in.Byte() % 2;
    g_steps = g_sleeps_at_end = g_at = 0;
    g_serial = 0;
    g_run = 1;
    MUST(GetAVStreamInit(Server::kType, Take, MayGoOn) == AVSTREAM_OK);
    const uint8_t records = in.Byte();
    for (int i = 0; i < records % 32; ++i) Put(in);
    AVMsgBuf arguments{};
    arguments.src = Server::kType;
    arguments.video_index = g_stream;
    FrameReader(arguments, g_run).Follow();
    MUST(g_attached.empty());
}
