#include "MediaServer.h"

#include <chrono>
#include <cstdio>
#include <utility>

#include "libIpcUtils.h"

namespace desk {
namespace {

// A reader that packs a frame anew must find room in a buffer of the ring's size.
constexpr size_t kRepackingRoom = 1024;

enum ServerCommand : int32_t {  // kAVServerVideoStart and so on
#define COMMAND_CODE(function, code, ...) k##function = code,
    AV_SERVER_COMMANDS(COMMAND_CODE, COMMAND_CODE, COMMAND_CODE)
#undef COMMAND_CODE
};

int OpenQueue(int key, const char* what) {
    const int queue = IpcMsgInit(key);
    if (queue < 0) throw std::runtime_error(std::string("cannot open the ") + what);
    return queue;
}

}  // namespace

MediaServer::MediaServer(Journal& journal, Hostility* hostility) : journal_(journal), hostility_(hostility) {
    rings_[0] = std::make_unique<FrameRing>(AVSTREAM_MAIN_RING_KEY, AVSTREAM_MAIN_RING_SIZE);
    rings_[1] = std::make_unique<FrameRing>(AVSTREAM_SUB_RING_KEY, AVSTREAM_SUB_RING_SIZE);
    request_queue_ = OpenQueue(AVSTREAM_QUEUE_KEY, "stream request queue");
    command_queue_ = OpenQueue(AVACCESS_MSG_KEY, "media server's command queue");
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
    answer.msg_ret = AVSTREAM_OK;
    const bool known = Known(request.video_index);
    switch (request.cmd) {
        case AVSTREAM_CMD_LOCK:  // a ring is overwritten all the same: a reader that is late notices by the serials
        case AVSTREAM_CMD_UNLOCK:
            break;
        case AVSTREAM_CMD_CURRENT_FRAME:
            if (known) answer.video_pos = Ring(request.video_index).WritePosition();
            break;
        case AVSTREAM_CMD_LAST_I_FRAME:
        case AVSTREAM_CMD_RECORD_I_FRAME:
            if (known) answer.video_pos = Ring(request.video_index).LastKeyPosition();
            break;
        case AVSTREAM_CMD_REAL_FRAME_RATE:
            if (known) answer.video_pos = FrameRate(request.video_index);
            break;
        default:
            answer.msg_ret = AVSTREAM_UNKNOWN;
            return answer;
    }
    if (!known) answer.msg_ret = AVSTREAM_PARAM_ERROR;
    return answer;
}

AVAccessMsgBuf MediaServer::Answer(AVAccessMsgBuf command) {
    AVAccessMsgBuf answer = command;
    answer.des = command.src;
    answer.ret = AVSERVER_OK;
    switch (command.cmd) {
        case kAVServerVideoForceIFrame:
        case kAVServerVideoRestart:
        case kAVServerVideoStart:
        case kAVServerVideoStop:
            if (!Known(command.index)) {
                answer.ret = AVSERVER_PARAM_ERROR;
                return answer;
            }
            break;
        default:
            return answer;  // the setting itself lies in the configuration, which the encoders follow by themselves
    }
    if (command.cmd == kAVServerVideoForceIFrame) ForceKeyFrame(command.index);
    if (command.cmd == kAVServerVideoRestart) RequestRestart(command.index);
    if (command.cmd == kAVServerVideoStart || command.cmd == kAVServerVideoStop) {
        streams_[Index(command.index)].stopped = command.cmd == kAVServerVideoStop;
    }
    return answer;
}

void MediaServer::AnswerRequests() {
    AVMsgBuf request{};
    while (IpcMsgRecv(request_queue_, MSG_AV_TYPE_SERVER, &request, sizeof request) >= 0) {
        if (request.src <= MSG_AV_TYPE_SERVER || request.src >= MSG_AV_TYPE_END) {
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
    while (IpcMsgRecv(command_queue_, MSG_AVACCESS_TYPE_MSG1, &command, sizeof command) >= 0) {
        if (command.src <= MSG_AVACCESS_TYPE_MSG1) {
            std::fprintf(stderr, "deskcamera: a command from client %d has no reply type\n", command.src);
            continue;
        }
        AVAccessMsgBuf answer = Answer(command);
        if (IpcMsgSend(command_queue_, &answer, sizeof answer) < 0) break;
    }
}

}  // namespace desk
