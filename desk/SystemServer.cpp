#include "SystemServer.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "Settings.h"
#include "libIpcUtils.h"

namespace desk {
namespace {

struct Command {
    SystemMessage code;
    const char* setting;
};

constexpr Command kCommands[] = {
    {SYS_MSG_SET_VIDEO_ENCODEING_TYPE1, "lan_config.nEncodingType1"},
    {SYS_MSG_SET_VIDEO_ENCODEING_TYPE2, "lan_config.nEncodingType2"},
    {SYS_MSG_SET_VIDEO_CODEC_MODE, "lan_config.nVideocodecmode"},
    {SYS_MSG_SET_MPEG41_BITRATE, "lan_config.nBitrate1"},
    {SYS_MSG_SET_MPEG42_BITRATE, "lan_config.nBitrate2"},
    {SYS_MSG_SET_FRAMERATE1, "lan_config.nFrameRate1"},
    {SYS_MSG_SET_FRAMERATE2, "lan_config.nFrameRate2"},
    {SYS_MSG_SET_STREAM1_WIDTH, "stream_config[0].width"},
    {SYS_MSG_SET_STREAM1_HEIGHT, "stream_config[0].height"},
    {SYS_MSG_SET_STREAM2_WIDTH, "stream_config[1].width"},
    {SYS_MSG_SET_STREAM2_HEIGHT, "stream_config[1].height"},
    {SYS_MSG_SET_ENCODING1_ENABLE, "stream_config[0].iEnable"},
    {SYS_MSG_SET_ENCODING2_ENABLE, "stream_config[1].iEnable"},
    {SYS_MSG_SET_MIRROR, "lan_config.mirror"},
    {SYS_MSG_SET_IPRATIO1, "codec_advconfig[0].ipRatio"},
    {SYS_MSG_SET_IPRATIO2, "codec_advconfig[1].ipRatio"},
    {SYS_MSG_SET_AUDIO_ENABLE, "audio_config.audioenable"},
    {SYS_MSG_SET_ROTATE_ANGLE, "lan_config.nRotateAngle"},
    {SYS_MSG_SET_RECORD_ENABLE, "Record_config.ucEnable"},
    {SYS_MSG_SET_RECORD_MODE, "Record_config.ucPackingModel"},
    {SYS_MSG_SET_RECORD_TIME, "Record_config.ucPackingTime"},
    {SYS_MSG_SET_RECORD_STREAM_TYPE, "Record_config.ucVideoStreamType"},
    {SYS_MSG_SET_SMART_ENC_ENABLE, "lan_config.ucSmartEncEnable"},
};

}  // namespace

SystemServer::SystemServer(const SysInfo& initial, std::function<void(int)> force_key_frame)
    : force_key_frame_(std::move(force_key_frame)),
      configuration_(SYS_CONFIG_KEY, SYS_SEGMENT_SIZE, "configuration"),
      transfer_(SYS_DRV_KEY, SYS_SEGMENT_SIZE, "system server's transfer"),
      queue_(IpcMsgInit(SYS_DRV_KEY)) {
    if (queue_ < 0) throw std::runtime_error("cannot open the system server's request queue");
    Record() = initial;
    thread_ = std::thread(&SystemServer::AnswerRequests, this);
}

SystemServer::~SystemServer() {
    IpcMsgKill(queue_);  // ends the thread's waiting
    thread_.join();
}

void SystemServer::Change(const std::function<void(SysInfo&)>& change) {
    const std::lock_guard lock(changes_);
    SysInfo changed = Record();
    change(changed);
    const uint8_t rotation = Record().lan_config.nRotateAngle;
    if (changed.lan_config.nRotateAngle != rotation) changed.lan_config.nPreRotateAngle = rotation;
    Record() = changed;
}

SysInfo SystemServer::Snapshot() {
    const std::lock_guard lock(changes_);
    return Record();
}

void SystemServer::Apply(int command, uint32_t value) {
    if (command >= SYS_MSG_SET_FORCE_IFRAME1 && command <= SYS_MSG_SET_FORCE_IFRAME3) {
        force_key_frame_(command - SYS_MSG_SET_FORCE_IFRAME1);
    } else if (command == SYS_MSG_SET_VIDEO_FORCE_IFRAME) {
        force_key_frame_(static_cast<int>(value));
    }
    const Command* const found =
        std::ranges::find(kCommands, command, [](const Command& row) { return int{row.code}; });
    if (found == std::end(kCommands)) return;
    try {
        Change([&](SysInfo& record) { WriteSetting(record, SettingByName(found->setting), value); });
    } catch (const std::runtime_error& error) {
        std::fprintf(stderr, "deskcamera: request %d: %s\n", command, error.what());
    }
}

// A payload is a little-endian number of as many bytes as it is long; of longer ones the first four count.
SYS_MSG_BUF SystemServer::Answer(const SYS_MSG_BUF& request) {
    SYS_MSG_BUF answer = request;
    answer.Des = request.src;
    const auto segment = transfer_.Data();
    const bool inside = request.offset >= 0 && request.length > 0 && request.length <= SYS_DRV_SLOT_SIZE &&
                        static_cast<size_t>(request.offset) + static_cast<size_t>(request.length) <= segment.size();
    if (inside) {
        uint32_t value = 0;
        std::memcpy(&value, segment.data() + request.offset,
                    std::min<size_t>(sizeof value, static_cast<size_t>(request.length)));
        Apply(request.cmd, value);
    }
    return answer;
}

void SystemServer::AnswerRequests() {
    SYS_MSG_BUF request{};
    while (IpcMsgRecv(queue_, SYS_MSG_TYPE_SERVER, &request, sizeof request) >= 0) {
        if (request.src <= SYS_MSG_TYPE_SERVER)
            continue;  // such a sender waits for nothing, or for what it sent itself
        SYS_MSG_BUF answer = Answer(request);
        if (IpcMsgSend(queue_, &answer, sizeof answer) < 0) break;
    }
}

}  // namespace desk
