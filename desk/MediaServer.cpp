#include "MediaServer.h"

#include <chrono>
#include <cstdio>
#include <utility>

#include "libIpcUtils.h"

namespace desk {
namespace {

constexpr int kMainRingKey = 0x61766C79, kSubRingKey = 0x61766C7A;
constexpr uint32_t kMainRingSize = 614400, kSubRingSize = 131072;
constexpr int kRequestQueueKey = 0x61766C79, kCommandQueueKey = 0x61766C8A;
constexpr int kRequestType = 1;                    // messages to the media server
constexpr int kFirstClient = 2, kLastClient = 16;  // reply types of the request queue
constexpr size_t kRepackingRoom =
    1024;  // a reader that packs a frame anew must find room in a buffer of the ring's size

enum StreamCommand : int32_t {
    kLock = 0x1001,
    kUnlock = 0x1002,
    kCurrentPosition = 0x2001,
    kLastKeyFrame = 0x2002,
    kRecordKeyFrame = 0x2003,
    kRealFrameRate = 0x4001,
};
enum ServerCommand : int32_t {
    kVideoStart = 0x2001,
    kVideoStop = 0x2002,
    kVideoRestart = 0x2003,
    kForceKeyFrame = 0x2010
};

constexpr int kOk = 0, kUnknown = 101, kParameterError = 102;

int OpenQueue(int key, const char* what) {
    const int queue = IpcMsgInit(key);
    if (queue < 0) throw std::runtime_error(std::string("cannot open the ") + what);
    return queue;
}

}  // namespace

MediaServer::MediaServer(Journal& journal, Hostility* hostility) : journal_(journal), hostility_(hostility) {
    rings_[0] = std::make_unique<FrameRing>(kMainRingKey, kMainRingSize);
    rings_[1] = std::make_unique<FrameRing>(kSubRingKey, kSubRingSize);
    request_queue_ = OpenQueue(kRequestQueueKey, "stream request queue");
    command_queue_ = OpenQueue(kCommandQueueKey, "media server's command queue");
    request_thread_ = std::thread(&MediaServer::AnswerRequests, this);
    command_thread_ = std::thread(&MediaServer::AnswerCommands, this);
}

MediaServer::~MediaServer() {
    IpcMsgKill(request_queue_);  // ends the threads' waiting
    IpcMsgKill(command_queue_);
    request_thread_.join();
    command_thread_.join();
}

MediaServer::Turn MediaServer::BeginFrame(int stream) {
    if (hostility_ != nullptr && stream == 0) {
        hostility_->BeforeRecord({rings_[0].get(), rings_[1].get()}, [this](const std::string& text) {
            journal_.Remark(text);
            std::fprintf(stderr, "deskcamera: %s\n", text.c_str());
        });
    }
    Stream& state = streams_[Index(stream)];
    Turn turn{std::unique_lock(state.turn), false};
    if (state.restart_wanted.exchange(false)) {
        Ring(stream).Restart();
        state.key_wanted = true;
    }
    turn.key_wanted = state.key_wanted || state.waits_for_key;
    return turn;
}

void MediaServer::PublishVideo(int stream, const AccessUnit& unit, uint32_t time_ms) {
    Stream& state = streams_[Index(stream)];
    const bool skipped =
        state.stopped || (state.waits_for_key && !unit.key && unit.bytes.size() > 4 && unit.bytes[0] == 0);
    const bool too_large = unit.bytes.size() + kRepackingRoom > Ring(stream).RingSize();
    if (too_large && !std::exchange(state.told_too_large, true)) {
        std::fprintf(stderr,
                     "deskcamera: a frame of %zu bytes does not fit the ring of stream %d (%u bytes): video is dropped "
                     "from such a frame to the next key frame\n",
                     unit.bytes.size(), stream, Ring(stream).RingSize());
    }
    if (skipped || too_large) {
        ++dropped_[Index(stream)];
        state.waits_for_key = true;
        return;
    }
    if (unit.key) {
        state.waits_for_key = false;
        state.key_wanted = false;
    }
    const FrameRing::Record record{AV_FRAME_TYPE_VIDEO, unit.bytes, time_ms, unit.key};
    if (const auto place = Ring(stream).Publish(record)) {
        ++published_[Index(stream)];
        CountFrame(stream, time_ms);
        journal_.Note(stream, record, *place);
    }
}

void MediaServer::PublishSound(View frame, uint32_t time_ms) {
    for (int stream = 0; stream < kStreams; ++stream) {
        if (streams_[Index(stream)].stopped) continue;
        const FrameRing::Record record{AV_FRAME_TYPE_AUDIO, frame, time_ms};
        if (const auto place = Ring(stream).Publish(record)) journal_.Note(stream, record, *place);
    }
}

void MediaServer::ForceKeyFrame(int stream) {
    if (!Known(stream)) return;
    Stream& state = streams_[Index(stream)];
    const std::lock_guard lock(state.turn);
    state.key_wanted = true;
}

void MediaServer::RequestRestart(int stream) {
    if (Known(stream)) streams_[Index(stream)].restart_wanted = true;
}

void MediaServer::CountFrame(int stream, uint32_t time_ms) {
    Stream& state = streams_[Index(stream)];
    const std::lock_guard lock(state.rate);
    state.last_second_ms.push_back(time_ms);
    while (time_ms - state.last_second_ms.front() >= 1000) state.last_second_ms.pop_front();
}

uint32_t MediaServer::FrameRate(int stream) const {
    const Stream& state = streams_[Index(stream)];
    const std::lock_guard lock(state.rate);
    return static_cast<uint32_t>(state.last_second_ms.size());
}

AVMsgBuf MediaServer::Answer(AVMsgBuf request) {
    AVMsgBuf answer = request;
    answer.des = request.src;
    answer.msg_ret = kOk;
    const bool known = Known(request.video_index);
    switch (request.cmd) {
        case kLock:  // a ring is overwritten all the same: a reader that is late notices by the serials
        case kUnlock:
            break;
        case kCurrentPosition:
            if (known) answer.video_pos = Ring(request.video_index).WritePosition();
            break;
        case kLastKeyFrame:
        case kRecordKeyFrame:
            if (known) answer.video_pos = Ring(request.video_index).LastKeyPosition();
            break;
        case kRealFrameRate:
            if (known) answer.video_pos = FrameRate(request.video_index);
            break;
        default:
            answer.msg_ret = kUnknown;
            return answer;
    }
    if (!known) answer.msg_ret = kParameterError;
    return answer;
}

AVAccessMsgBuf MediaServer::Answer(AVAccessMsgBuf command) {
    AVAccessMsgBuf answer = command;
    answer.des = command.src;
    answer.ret = kOk;
    switch (command.cmd) {
        case kForceKeyFrame:
        case kVideoRestart:
        case kVideoStart:
        case kVideoStop:
            if (!Known(command.index)) {
                answer.ret = kParameterError;
                return answer;
            }
            break;
        default:
            return answer;  // the setting behind it lies in the configuration, which the encoders follow by themselves
    }
    if (command.cmd == kForceKeyFrame) ForceKeyFrame(command.index);
    if (command.cmd == kVideoRestart) RequestRestart(command.index);
    if (command.cmd == kVideoStart || command.cmd == kVideoStop) {
        streams_[Index(command.index)].stopped = command.cmd == kVideoStop;
    }
    return answer;
}

void MediaServer::AnswerRequests() {
    AVMsgBuf request{};
    while (IpcMsgRecv(request_queue_, kRequestType, &request, sizeof request) >= 0) {
        if (request.src < kFirstClient || request.src > kLastClient) {
            std::fprintf(stderr, "deskcamera: a stream request from client %d has no reply type\n", request.src);
            continue;
        }
        AVMsgBuf answer = Answer(request);
        if (hostility_ != nullptr && Known(request.video_index)) {
            std::this_thread::sleep_for(std::chrono::milliseconds(hostility_->AnswerDelay_ms()));
            answer.video_pos = hostility_->AnswerPosition(answer.video_pos, Ring(request.video_index).RingSize());
        }
        if (IpcMsgSend(request_queue_, &answer, sizeof answer) < 0) break;
    }
}

void MediaServer::AnswerCommands() {
    AVAccessMsgBuf command{};
    while (IpcMsgRecv(command_queue_, kRequestType, &command, sizeof command) >= 0) {
        if (command.src <= kRequestType) {
            std::fprintf(stderr, "deskcamera: a command from client %d has no reply type\n", command.src);
            continue;
        }
        AVAccessMsgBuf answer = Answer(command);
        if (IpcMsgSend(command_queue_, &answer, sizeof answer) < 0) break;
    }
}

}  // namespace desk
