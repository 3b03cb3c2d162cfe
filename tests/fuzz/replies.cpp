// The request channel: whatever waits in the queue and whatever is answered, a reader's question comes back with an
// answer that was given to it, or with none, and no question hangs once the media server answers in order.
#include <optional>
#include <vector>

#include "Connection.h"
#include "Server.h"

namespace {

constexpr int kType = fuzz::Server::kType;
constexpr int kSleepsMax = 20000;

fuzz::Server& g_server() {
    static fuzz::Server server;
    return server;
}
fuzz::Input* g_input;
int g_sleeps;
std::optional<AVMsgBuf> g_swallowed;  // a request that was read and not answered
std::vector<AVMsgBuf> g_given;        // to client kType since the question was asked

void Give(int32_t client, fuzz::Bytes payload) {
    AVMsgBuf seen{};
    payload = payload.first(std::min<size_t>(payload.size(), 512));
    std::memcpy(&seen.src, payload.data(), std::min(payload.size(), sizeof seen - sizeof seen.des));
    if (client == kType && payload.size() <= sizeof seen - sizeof seen.des) {
        g_given.push_back(seen);
    }
    g_server().Send(client, payload);
}

void Answer(const AVMsgBuf& answer) {
    Give(answer.src, {reinterpret_cast<const uint8_t*>(&answer.src), sizeof answer - sizeof answer.des});
}

// In place of an answer, or beside it: what the input says; in the end every request is answered.
void Serve(unsigned) {
    MUST(++g_sleeps < kSleepsMax);
    fuzz::Input& in = *g_input;
    AVMsgBuf request;
    const bool asked = g_server().Next(request);
    if (in.Empty()) {
        if (asked || g_swallowed) Answer(asked ? request : *g_swallowed);
        g_swallowed.reset();
        return;
    }
    const uint8_t act = in.Byte() % 8;
    if (act == 0) {
        const int32_t client = 1 + in.Byte() % 8;
        Give(client == MSG_AV_TYPE_SERVER ? kType : client, in.Take(in.Byte()));
    }
    if (!asked) return;
    AVMsgBuf answer = request;
    answer.video_pos = in.Word();
    answer.msg_ret = in.Byte();
    if (act == 1) answer.cmd ^= in.Byte();
    if (act == 2) answer.video_index ^= in.Byte();
    if (act == 3) {
        g_swallowed = request;
        return;
    }
    Answer(answer);
    if (act == 4) Answer(answer);  // twice
}

// A reader's question.  An answer without a command belongs to the oldest question, which is this one.
void AskPosition(AVStreamCommand command, int stream) {
    g_given.clear();
    unsigned silence_ms = 0;
    const std::optional<int> position = RequestPosition([] { return true; }, silence_ms, command, kType, stream);
    const auto gave_it = [&](const AVMsgBuf& given) {
        const bool ours = given.cmd == 0 || (given.cmd == command && given.video_index == stream);
        return ours && static_cast<int>(given.video_pos) == *position;
    };
    MUST(!position || std::any_of(g_given.begin(), g_given.end(), gave_it));
}

void Ask(uint8_t what, int stream) {
    AVMsgBuf message{};
    switch (what % 8) {
        case 0:
            MUST(AVStreamGetCurrentFrame(kType, stream, &message) == AVSTREAM_OK);
            break;
        case 1:
            MUST(AVStreamGetRealFrameRate(kType, stream, &message) == AVSTREAM_OK);
            break;
        case 2:
            AVStreamLock(kType, stream, what, what);
            break;
        case 3:
            AVStreamUnLock(kType, stream, what, what);
            break;
        case 4:
            AskPosition(AVSTREAM_CMD_CURRENT_FRAME, stream);
            break;
        default:
            AskPosition(AVSTREAM_CMD_LAST_I_FRAME, stream);
            break;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    g_server().Reset();
    fuzz::SleepCalls(Serve);
    fuzz::Input in(data, size);
    g_input = &in;
    g_sleeps = 0;
    g_swallowed.reset();
    const uint8_t questions = in.Byte() % 8;
    for (int left = in.Byte() % 4; left > 0; --left) {
        Give(kType, in.Take(in.Byte() % 64));  // to an earlier process
    }
    MUST(GetAVControlInit() == AVSTREAM_OK);
    for (int i = 0; i <= questions; ++i) {
        const uint8_t what = in.Byte();
        Ask(what, what >> 3 & 1);
    }
    return 0;
}
