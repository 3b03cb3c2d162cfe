// The camera's system server as its clients meet it: the configuration record in shared memory, and the queue on
// which they ask for changes.
//
// Owns the configuration segment, the transfer segment and the request queue (all removed at its end), one thread
// that answers, and a lock that orders the changes.  Every request is answered, with its own length; those that the
// desk camera has a setting for change the record.  Changes may come from any thread.
#pragma once

#include <functional>
#include <mutex>
#include <thread>

#include "SharedSegment.h"
#include "libOthers.h"

namespace desk {

class SystemServer {
  public:
    // The record begins as `initial`.  `force_key_frame` is called with a stream index, on the answering thread.
    SystemServer(const SysInfo& initial, std::function<void(int)> force_key_frame);
    ~SystemServer();
    SystemServer(const SystemServer&) = delete;
    SystemServer& operator=(const SystemServer&) = delete;

    // Runs `change` on a copy of the record and puts that in its place: readers see all of it or, when it throws,
    // nothing.  No other change happens meanwhile.
    void Change(const std::function<void(SysInfo&)>& change);
    SysInfo Snapshot();

    // The answer to a request whose payload lies in the transfer segment.
    SYS_MSG_BUF Answer(const SYS_MSG_BUF& request);

  private:
    void AnswerRequests();
    void Apply(int command, uint32_t value);
    SysInfo& Record() { return *reinterpret_cast<SysInfo*>(configuration_.Data().data()); }

    std::function<void(int)> force_key_frame_;
    SharedSegment configuration_;
    SharedSegment transfer_;
    int queue_;
    std::mutex changes_;
    std::thread thread_;
};

}  // namespace desk
