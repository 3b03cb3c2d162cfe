// A media server of the test's own: the real rings and the real request queue, every byte under its control.
#pragma once

#include <gtest/gtest.h>
#include <sys/msg.h>
#include <sys/shm.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "libGetAVStream.h"
#include "libIpcUtils.h"

class MediaPeer {
  public:
    MediaPeer() { Open(); }
    ~MediaPeer() { Close(); }

    // Everything is removed and made anew.
    void Restart() {
        Close();
        Open();
    }
    void RemoveRings() {
        for (int i = 0; i < 2; ++i) {
            shmdt(bases_[i]);
            shmctl(segments_[i], IPC_RMID, nullptr);
        }
    }
    void MakeRings() {
        constexpr int kSizes[] = {614464, 131136};
        for (int i = 0; i < 2; ++i) {
            segments_[i] = shmget(0x61766C79 + i, static_cast<size_t>(kSizes[i]), IPC_CREAT | 0777);
            EXPECT_GE(segments_[i], 0);
            bases_[i] = static_cast<char*>(shmat(segments_[i], nullptr, 0));
            std::memset(bases_[i], 0, static_cast<size_t>(kSizes[i]));
        }
    }
    void RemoveQueue() { msgctl(queue_, IPC_RMID, nullptr); }
    void MakeQueue() {
        queue_ = msgget(0x61766C79, IPC_CREAT | 0666);
        EXPECT_GE(queue_, 0);
    }

    static AVDataInfo Frame(int32_t end_flag = AVDATA_END_FRAME, int32_t length = 0) {
        AVDataInfo header{};
        header.AVDataLen = length;
        header.AVDataCheck = 0x12345678;
        header.EndFlag = end_flag;
        return header;
    }

    // Writes a record, of its payload's length if it names none, and returns the position after it.
    int Put(int stream, int position, uint32_t serial, const std::string& payload, AVDataInfo header = Frame()) {
        header.SerialNumber = serial;
        if (header.AVDataLen == 0) {
            header.AVDataLen = static_cast<int32_t>(payload.size());
        }
        char* const at = bases_[stream] + position;
        const int32_t end_flag = header.EndFlag;
        header.EndFlag = 0;  // not ready before it is complete
        std::memcpy(at, &header, sizeof header);
        std::atomic_thread_fence(std::memory_order_release);
        std::memcpy(at + sizeof header, payload.data(), payload.size());
        std::atomic_thread_fence(std::memory_order_release);
        std::memcpy(at + offsetof(AVDataInfo, EndFlag), &end_flag, sizeof end_flag);
        return position + static_cast<int>(sizeof header + payload.size());
    }
    // An answer that nobody asked for now, followed by `more` bytes.
    void PutAnswer(int type, int32_t command, int stream, uint32_t position, size_t more = 0) {
        const AVMsgBuf answer{type, type, command, stream, position, 0, 0, 0, {}};
        std::string bytes(reinterpret_cast<const char*>(&answer), sizeof answer);
        bytes.append(more, '\x11');
        EXPECT_EQ(IpcMsgSend(queue_, bytes.data(), static_cast<int>(bytes.size())), 0);
    }
    // A reader that comes here waits for as long as it takes, until a record is put here.
    void Park(int stream, int position) { Put(stream, position, 0, "", Frame(AVDATA_END_FRAME, INT32_MAX)); }
    AVDataInfo HeaderAt(int stream, int position) const {
        AVDataInfo header;
        std::memcpy(&header, bases_[stream] + position, sizeof header);
        return header;
    }

    // Answers all requests from now on; it may run until the peer goes.
    void AnswerWith(std::function<void(AVMsgBuf&)> answer) {
        const std::lock_guard guard(answer_lock_);
        answer_ = std::move(answer);
    }

    std::atomic<int> current{0};    // answer to "where is the writer"
    std::atomic<int> last_key{-1};  // answer to "where is the last key frame"
    std::atomic<bool> silent{false};
    std::atomic<int> mute_stream{-1};  // its requests are taken and never answered
    std::atomic<int> requests{0};
    std::atomic<int> key_requests{0};

  private:
    void Open() {
        MakeRings();
        MakeQueue();
        thread_ = std::jthread([this](const std::stop_token& over) { Serve(over); });
    }
    void Close() {
        thread_ = {};
        RemoveQueue();
        RemoveRings();
    }
    void Serve(const std::stop_token& over) {
        while (!over.stop_requested()) {
            AVMsgBuf message;
            if (silent || IpcMsgTryRecv(queue_, 1, &message, sizeof message) < 0) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
                continue;
            }
            ++requests;
            if (message.video_index == mute_stream) {
                continue;
            }
            message.des = message.src;
            const std::lock_guard guard(answer_lock_);
            if (answer_) {
                answer_(message);
            } else if (message.cmd == 0x2002) {
                ++key_requests;
                message.video_pos = static_cast<uint32_t>(last_key.load());
            } else {
                message.video_pos = static_cast<uint32_t>(current.load());
            }
            IpcMsgSend(queue_, &message, sizeof message);
        }
    }

    std::mutex answer_lock_;
    std::function<void(AVMsgBuf&)> answer_;
    int segments_[2];
    char* bases_[2];
    std::atomic<int> queue_;
    std::jthread thread_;
};
