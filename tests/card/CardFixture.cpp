#include "CardFixture.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include "EncodedClip.h"
#include "StoreWriter.h"
#include "Volume.h"

namespace fixture {

namespace fs = std::filesystem;

namespace {

constexpr uint32_t kClipFramesMax = 250;  // encoded per plan; longer sections repeat them

AVStreamParam ParametersOf(const SectionPlan& plan) {
    AVStreamParam parameters{};
    const bool g711 = plan.audio == CODE_AUDIO_G711A || plan.audio == CODE_AUDIO_G711U;
    parameters.m_u8VedioCodeType = static_cast<uint16_t>(plan.video);
    parameters.m_u8AudioCodeType = static_cast<uint16_t>(plan.audio);
    parameters.m_u16VedioWidth = static_cast<uint16_t>(plan.width);
    parameters.m_u16VedioHeight = static_cast<uint16_t>(plan.height);
    parameters.m_u16VedioBitRate = 1024;
    parameters.m_u16VedioFrame = static_cast<uint16_t>(plan.rate);
    parameters.m_u16AudioSampleRate = 8000;
    parameters.m_u16AudioBitRate = g711 ? 33000 : 32;
    return parameters;
}

// A unit that decoders skip, so that a frame gets the size asked for.
std::string Filled(const std::string& unit, const SectionPlan& plan) {
    const std::string start =
        plan.video == CODE_VIDEO_H265 ? std::string("\0\0\0\1\x4C\x01", 6) : std::string("\0\0\0\1\x0C", 5);
    if (unit.size() + start.size() + 2 > plan.frame_bytes) return unit;
    return unit + start + std::string(plan.frame_bytes - unit.size() - start.size() - 1, '\xFF') + '\x80';
}

// Plays the plans of a card into a store.
class Recorder {
  public:
    Recorder(const Card& card, const std::string& folder, Recording& recording)
        : card_(card), writer_(folder), recording_(recording) {}

    void RecordAll() {
        uint32_t time = card_.start;
        for (size_t i = 0; i < card_.sections.size(); ++i) {
            if (i != 0) time += card_.sections[i].pause;
            RecordPlan(i, time);
            time += card_.sections[i].seconds;
        }
        for (const EventPlan& event : card_.events) AddEvent(event);
    }

  private:
    void RecordPlan(size_t number, uint32_t start) {
        const SectionPlan& plan = card_.sections[number];
        const uint32_t count = plan.seconds * plan.rate;
        const uint32_t key_interval = plan.key_interval != 0 ? plan.key_interval : plan.rate;
        const uint32_t clip_frames = std::min(count, std::max(kClipFramesMax / key_interval, 1u) * key_interval);
        const std::vector<EncodedFrame>& clip =
            EncodedVideo({plan.video, plan.width, plan.height, plan.rate, key_interval, clip_frames, plan.b_frames});
        const bool has_sound = plan.audio != CODE_AUDIO_NULL;
        const uint32_t samples = plan.audio == CODE_AUDIO_AAC ? 1024 : 320;
        const uint32_t sounds_kept = std::max(1u, std::min(plan.seconds, 10u) * 8000 / samples);
        uint32_t sounds = 0;
        bool open = false;
        for (uint32_t i = 0; i < count; ++i) {
            const EncodedFrame& frame = clip[i % clip.size()];
            const uint32_t time = start + i / plan.rate;
            if (!open && !frame.key) continue;  // a run begins with a key frame
            if (!open) Begin(number, time);
            open = true;
            Video(plan, frame, plan.virtual_every != 0 && !frame.key && i % plan.virtual_every == 0, time);
            for (; has_sound && uint64_t{sounds} * samples * plan.rate < uint64_t{i + 1} * 8000; ++sounds) {
                Audio(EncodedSound(plan.audio, sounds_kept)[sounds % sounds_kept], time);
            }
            if (writer_.FileFull()) {
                writer_.EndSection();
                open = false;
            }
        }
        if (open) writer_.EndSection();
    }

    void Begin(size_t plan, uint32_t time) {
        writer_.BeginSection(time, ParametersOf(card_.sections[plan]));
        if (writer_.ReusedFile()) {
            for (WrittenSection& section : recording_.sections) {
                section.overwritten = section.overwritten || section.file == writer_.File();
            }
        }
        recording_.sections.push_back({writer_.File(), writer_.Section(), time, time, plan, false});
        first_ = true;
    }

    void Video(const SectionPlan& plan, const EncodedFrame& frame, bool virtual_key, uint32_t time) {
        const std::string unit = Filled(frame.unit, plan);
        const StoreWriter::Written written = writer_.Video(unit, frame.key, virtual_key, time);
        Note(written, unit, true, frame.key, time);
        first_ = false;
    }

    void Audio(const std::string& sound, uint32_t time) { Note(writer_.Audio(sound, time), sound, false, false, time); }

    void Note(const StoreWriter::Written& written, const std::string& unit, bool video, bool key, uint32_t time) {
        recording_.sections.back().end = time;
        recording_.frames.push_back({.section = recording_.sections.size() - 1,
                                     .file = writer_.File(),
                                     .offset = written.offset,
                                     .size = written.size,
                                     .video = video,
                                     .key = key,
                                     .first_of_run = first_,
                                     .time = time,
                                     .pts = written.pts,
                                     .unit = card_.keep_units ? unit : std::string()});
    }

    // An event belongs to the record file that was being written when it began.
    void AddEvent(const EventPlan& event) {
        const uint32_t start = card_.start + event.after;
        const WrittenSection* owner = nullptr;
        for (const WrittenSection& section : recording_.sections) {
            if (!section.overwritten && section.start <= start) owner = &section;
        }
        if (owner == nullptr) return;
        const uint8_t rate = static_cast<uint8_t>(card_.sections[owner->plan].rate);
        writer_.AddEvent(owner->file, start, event.seconds == 0 ? 0 : start + event.seconds, event.type, rate);
    }

    const Card& card_;
    StoreWriter writer_;
    Recording& recording_;
    bool first_ = false;
};

void MakeSparse(const std::string& path, uint64_t size) {
    const int fd = open64(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0 || ftruncate64(fd, static_cast<off64_t>(size)) != 0) throw std::runtime_error("cannot make " + path);
    close(fd);
}

void RunOrThrow(const std::vector<std::string>& arguments) {
    const Outcome outcome = Tool(arguments);
    if (outcome.status != 0) throw std::runtime_error(arguments[0] + ": " + outcome.out + outcome.err);
}

}  // namespace

std::vector<const WrittenFrame*> Recording::Kept() const {
    std::vector<const WrittenFrame*> kept;
    for (const WrittenFrame& frame : frames) {
        if (!sections[frame.section].overwritten) kept.push_back(&frame);
    }
    return kept;
}

std::vector<const WrittenFrame*> Recording::KeptVideo() const {
    std::vector<const WrittenFrame*> kept = Kept();
    std::erase_if(kept, [](const WrittenFrame* frame) { return !frame->video; });
    return kept;
}

void Recording::Corrupt(const std::string& file, uint64_t offset, const std::string& bytes) const {
    card::Volume::Open(path, card::Access::ReadWrite).OpenFile(file).WriteAt(offset, bytes.data(), bytes.size());
}

std::string Recording::Read(const std::string& file, uint64_t offset, size_t length) const {
    std::string bytes(length, '\0');
    bytes.resize(card::Volume::Open(path).OpenFile(file).ReadAt(offset, bytes.data(), length));
    return bytes;
}

Recording Card::RecordFolder(const std::string& folder) const {
    fs::create_directories(folder);
    constexpr uint64_t kFixedFile = 64u << 20;
    MakeSparse(folder + "/" RECORD_INDEX_NAME, kFixedFile);
    MakeSparse(folder + "/" RECORD_EVENT_NAME, kFixedFile);
    for (uint32_t i = 0; i < files; ++i) MakeSparse(folder + "/" + card::Volume::RecordFileName(i), RECORD_FILE_SIZE);
    ConfigStoreInfo_S store{};
    store.total_size_byte = 1024 + uint64_t{files} * 256;
    store.vedio_num = files;
    if (AV_RecordFileConfigSet((folder + "/" RECORD_INDEX_NAME).c_str(), &store) != 0) {
        throw std::runtime_error("cannot prepare the store in " + folder);
    }
    Recording recording{.path = folder, .sections = {}, .frames = {}};
    Recorder(*this, folder, recording).RecordAll();
    return recording;
}

Recording Card::RecordImage(const std::string& image) const {
    RunOrThrow({"format", "--yes", "--size", std::to_string(1024 + files * 256) + "M", image});
    const std::string folder = image + ".mount";
    fs::create_directories(folder);
    RunOrThrow({"mount", image, folder});
    Recording recording{.path = image, .sections = {}, .frames = {}};
    Recorder(*this, folder, recording).RecordAll();
    if (umount(folder.c_str()) != 0) throw std::runtime_error("umount: " + std::string(std::strerror(errno)));
    fs::remove(folder);
    return recording;
}

Outcome RunProgram(const std::vector<std::string>& arguments) {
    std::array<int, 2> out{};
    std::array<int, 2> err{};
    if (pipe2(out.data(), O_CLOEXEC) != 0 || pipe2(err.data(), O_CLOEXEC) != 0) throw std::runtime_error("pipe");
    std::vector<char*> argv;
    for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
        dup2(out[1], STDOUT_FILENO);
        dup2(err[1], STDERR_FILENO);
        setenv("TZ", "UTC", 1);
        execvp(argv[0], argv.data());
        _exit(127);
    }
    close(out[1]);
    close(err[1]);
    Outcome outcome;
    std::array<pollfd, 2> pipes{{{out[0], POLLIN, 0}, {err[0], POLLIN, 0}}};
    while (pipes[0].fd >= 0 || pipes[1].fd >= 0) {
        poll(pipes.data(), pipes.size(), -1);
        for (size_t i = 0; i < pipes.size(); ++i) {
            if (pipes[i].fd < 0 || pipes[i].revents == 0) continue;
            char text[65536];
            const ssize_t got = read(pipes[i].fd, text, sizeof text);
            if (got > 0) (i == 0 ? outcome.out : outcome.err).append(text, static_cast<size_t>(got));
            if (got <= 0) close(std::exchange(pipes[i].fd, -1));
        }
    }
    int status = 0;
    waitpid(child, &status, 0);
    outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return outcome;
}

Outcome Tool(const std::vector<std::string>& arguments) {
    std::vector<std::string> command = {RECORDCARD};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return RunProgram(command);
}

}  // namespace fixture
