#include <array>
#include <cstdio>

#include "libOthers.h"

namespace {

using Sender = int (*)(void* data, unsigned int len);

// Senders by field code.  The second block (SFIELD_EX_START on) has none.
constexpr auto kSenders = [] {
    std::array<Sender, SFIELD_END - SFIELD_START + 1> senders{};
#define PUT_SENDER(function, message, command, field, code) senders[code - SFIELD_START] = function;
    SYS_SENDERS(PUT_SENDER)
#undef PUT_SENDER
    return senders;
}();

}  // namespace

int SysCtrlInit(int proc_id) {
    return SysDrvInit(proc_id) == 0 ? 0 : -1;
}

int SysCtrlExit(void) {
    return SysDrvExit();
}

int ControlSystemData(unsigned int field, void* data, unsigned int len) {
    if (data == nullptr || field < SFIELD_START || field > SFIELD_END) {
        return -1;
    }
    const Sender sender = kSenders[field - SFIELD_START];
    if (sender == nullptr) {
        return -1;
    }
    if (field == SFIELD_SET_DNS) {
        std::fputs(" control systemdata SFIELD_SET_DNS", stdout);
        std::fflush(stdout);
    }
    return sender(data, len);
}
