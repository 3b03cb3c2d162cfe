#include <array>
#include <cstring>
#include <stdexcept>

#include "Settings.h"

namespace desk {
namespace {

#define SETTING(member, lowest, highest, standard, comment)                                             \
    Setting {                                                                                           \
#member, offsetof(SysInfo, member), sizeof(SysInfo::member), lowest, highest, standard, comment \
    }
#define ELEMENT(array, i, member, lowest, highest, standard, comment)                                             \
    Setting {                                                                                                     \
#array "[" #i "]." #member, offsetof(SysInfo, array[i].member), sizeof(SysInfo::array[i].member), lowest, \
            highest, standard, comment                                                                            \
    }

std::vector<Setting> ListedSettings() {
    // clang-format off
    return {
        SETTING(Record_config.ucEnable,          0, 1, 1, "1: record by the schedule, 0: do not record"),
        SETTING(Record_config.ucVideoStreamType, 0, 2, 0, "the stream that is recorded: 0 main, 1 sub"),
        SETTING(Record_config.ucLackSpaceModel,  0, 1, 1, "card full: 0 stop, 1 overwrite the oldest"),
        SETTING(Record_config.ucpreRecordTime,   0, 10, 1, "an event reaches back: 0..6 = 0 5 10 15 20 25 30 s, 10: to the start"),
        SETTING(Record_config.ucrecordDelay,     0, 9, 1, "an event goes on: 0..7 = 10 5 10 30 60 120 300 600 s, 8, 9: 0 s"),
        SETTING(lan_config.nEncodingType1,       0, 4, 0, "codec of stream 0: 0 H.264, 1 H.265, 4 motion JPEG"),
        SETTING(lan_config.nEncodingType2,       0, 4, 0, "codec of stream 1"),
        ELEMENT(stream_config, 0, width,  64, 7680, 1280, "picture of stream 0, before it is turned"),
        ELEMENT(stream_config, 0, height, 64, 4320, 720,  ""),
        ELEMENT(stream_config, 1, width,  64, 7680, 640,  "picture of stream 1"),
        ELEMENT(stream_config, 1, height, 64, 4320, 360,  ""),
        ELEMENT(stream_config, 0, iEnable, 0, 1, 1, "1: the stream is encoded"),
        ELEMENT(stream_config, 1, iEnable, 0, 1, 1, ""),
        SETTING(lan_config.nFrameRate1,          1, 60, 25, "pictures a second"),
        SETTING(lan_config.nFrameRate2,          1, 60, 25, ""),
        SETTING(lan_config.nBitrate1,            32768, 64000000, 2097152, "bit/s"),
        SETTING(lan_config.nBitrate2,            32768, 16000000, 262144, ""),
        ELEMENT(codec_advconfig, 0, ipRatio,     1, 1000, 50, "pictures from key frame to key frame"),
        ELEMENT(codec_advconfig, 1, ipRatio,     1, 1000, 50, ""),
        SETTING(lan_config.nRotateAngle,         0, 3, 0, "the picture is turned clockwise by 0, 1: 90, 2: 180, 3: 270 degrees"),
        SETTING(lan_config.nVideocodecmode,      0, 255, 0, "codec mode"),
        SETTING(lan_config.ucSmartEncEnable,     0, 1, 0, "smart encoding, as the record says; the pictures stay the same"),
        SETTING(audio_config.audioenable,        0, 1, 1, "1: sound is published"),
        SETTING(audio_config.codectype,          0, 8196, 0, "sound: 0 G.711 mu-law, 1 G.711 A-law, 8193 AAC, 8196 PCM"),
        SETTING(Record_config.ucStorageType,     0, 255, 0, ""),
        SETTING(Record_config.ucPackingModel,    0, 255, 0, ""),
        SETTING(Record_config.ucPackingTime,     0, 255, 0, ""),
        SETTING(Record_config.ucPackingSize,     0, 255, 0, ""),
        SETTING(Record_config.ucMDVideoStreamType, 0, 2, 0, ""),
        SETTING(lan_config.nPreRotateAngle,      0, 3, 0, ""),
        SETTING(lan_config.mirror,               0, 255, 0, ""),
    };
    // clang-format on
}

#undef SETTING
#undef ELEMENT

// The schedule member by member: "Record_config.weekScope.dayScope[1].hourScope[0].beginHour.ucHour".
void AddSchedule(std::vector<Setting>& settings) {
    static constexpr struct {
        const char* name;
        size_t offset;
        int64_t highest;
    } kMembers[] = {{"beginHour.ucHour", offsetof(Hour_Scope, beginHour.ucHour), 24},
                    {"beginHour.ucMinute", offsetof(Hour_Scope, beginHour.ucMinute), 59},
                    {"beginHour.ucSecond", offsetof(Hour_Scope, beginHour.ucSecond), 59},
                    {"beginHour.ucType", offsetof(Hour_Scope, beginHour.ucType), 255},
                    {"endHour.ucHour", offsetof(Hour_Scope, endHour.ucHour), 24},
                    {"endHour.ucMinute", offsetof(Hour_Scope, endHour.ucMinute), 59},
                    {"endHour.ucSecond", offsetof(Hour_Scope, endHour.ucSecond), 59},
                    {"endHour.ucType", offsetof(Hour_Scope, endHour.ucType), 255}};
    for (size_t day = 0; day < 7; ++day) {
        const std::string day_name = "Record_config.weekScope.dayScope[" + std::to_string(day) + "].";
        const size_t day_offset = offsetof(SysInfo, Record_config.weekScope) + day * sizeof(Day_Hour_Scope);
        settings.push_back({day_name + "ucSocpeMode", day_offset, 1, 0, 3, 0, ""});
        for (size_t range = 0; range < 6; ++range) {
            const size_t offset = day_offset + offsetof(Day_Hour_Scope, hourScope) + range * sizeof(Hour_Scope);
            for (const auto& member : kMembers) {
                settings.push_back({day_name + "hourScope[" + std::to_string(range) + "]." + member.name,
                                    offset + member.offset, 1, 0, member.highest, 0, ""});
            }
        }
    }
}

}  // namespace

const std::vector<Setting>& AllSettings() {
    static const std::vector<Setting> settings = [] {
        std::vector<Setting> all = ListedSettings();
        AddSchedule(all);
        return all;
    }();
    return settings;
}

const Setting& SettingByName(const std::string& name) {
    for (const Setting& setting : AllSettings()) {
        if (setting.name == name) return setting;
    }
    throw std::runtime_error("there is no setting \"" + name + "\"");
}

int64_t ReadSetting(const SysInfo& record, const Setting& setting) {
    uint32_t value = 0;
    std::memcpy(&value, reinterpret_cast<const uint8_t*>(&record) + setting.offset, setting.size);
    return value;
}

void WriteSetting(SysInfo& record, const Setting& setting, int64_t value) {
    if (value < setting.lowest || value > setting.highest) {
        throw std::runtime_error(setting.name + " takes " + std::to_string(setting.lowest) + " to " +
                                 std::to_string(setting.highest) + ", not " + std::to_string(value));
    }
    const auto bytes = static_cast<uint32_t>(value);
    std::memcpy(reinterpret_cast<uint8_t*>(&record) + setting.offset, &bytes, setting.size);
}

}  // namespace desk
