// The request channel: whatever waits in the queue and whatever is answered, a reader's question comes back with an
// answer that was given to it, or with none, and no question hangs once the media server answers in order.
#include <optional>
#include <vector>

#include "Connection.h"
#include "Server.h"

namespace {

using fuzz::Server;

constexpr int kType = Server::kType;
constexpr int kSleepsMax = 20000;

int g_sleeps;
std::optional<AVMsgBuf> g_swallowed;  // a request that was read and not answered
std::vector<AVMsgBuf> g_given;        // to client kType since the question was asked

void Give(int32_t client, fuzz::Bytes payload) {
    AVMsgBuf seen{};
    std::memcpy(&seen.src, payload.data(), std::min(payload.size(), sizeof seen - sizeof seen.des));
    if (client == kType && payload.size() <= sizeof seen - sizeof seen.des) g_given.push_back(seen);
    Server::Instance().Send(client, payload);
}

void Answer(const AVMsgBuf& answer) {
    Give(answer.src, {reinterpret_cast<const uint8_t*>(&answer.src), sizeof answer - sizeof answer.des});
}

// In place of an answer, or beside it: what the input says; in the end every request is answered.
void Serve(unsigned) {
    MUST(++g_sleeps < kSleepsMax);
    fuzz::Input& in = Server::Instance().In();
    AVMsgBuf request;
    const bool asked = Server::Instance().Asked(request);
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
    const int kind = what % 8;
    if (kind == 0) MUST(AVStreamGetCurrentFrame(kType, stream, &message) == AVSTREAM_OK);
    if (kind == 1) MUST(AVStreamGetRealFrameRate(kType, stream, &message) == AVSTREAM_OK);
    if (kind == 2) AVStreamLock(kType, stream, what, what);
    if (kind == 3) AVStreamUnLock(kType, stream, what, what);
    if (kind >= 4) AskPosition(kind == 4 ? AVSTREAM_CMD_CURRENT_FRAME : AVSTREAM_CMD_LAST_I_FRAME, stream);
}

}  // namespace

void fuzz::Feed(Input& in) {
    Server::Instance().Begin(in, Serve);
    g_sleeps = 0;
    g_swallowed.reset();
    const uint8_t questions = in.Byte() % 8;
    for (int left = in.Byte() % 4; left > 0; --left) Give(kType, in.Take(in.Byte() % 64));  // to an earlier process
    MUST(GetAVControlInit() == AVSTREAM_OK);
    for (int i = 0; i <= questions; ++i) {
        const uint8_t what = in.Byte();
        Ask(what, what >> 3 & 1);
    }
}
