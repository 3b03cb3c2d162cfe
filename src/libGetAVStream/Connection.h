// The connection to the media server as the readers and requests of this module see it.
#pragma once

#include <algorithm>
#include <optional>

#include "FunctionRef.h"
#include "libGetAVStream.h"

// Ring size of each stream; positions and payload lengths stay below it.
inline constexpr int kRingSize[AVSTREAM_MAX] = {AVSTREAM_MAIN_RING_SIZE, AVSTREAM_SUB_RING_SIZE,
                                                AVSTREAM_THIRD_RING_SIZE, AVSTREAM_VOICE_TALK_RING_SIZE};

inline bool IsStream(int video_index) {
    return video_index >= 0 && video_index < AVSTREAM_MAX;
}
inline bool IsClientType(int type) {
    return type > MSG_AV_TYPE_SERVER && type < MSG_AV_TYPE_END;
}

// Segment id of a stream's ring; negative: there is none.
int RingSegment(int video_index);

// The same after the segment was removed: from now on it is the one that the key has now, if any.
int RenewedRingSegment(int video_index);

// Id of the queue that carries the requests about a stream, opened when it is not; negative without one.
int RequestQueue(int video_index);

// Forgets a request queue that was removed: the next request opens the one of its key.
void ForgetQueue(int qid);

// Whether a reader still wants the answer it waits for; asked in between, on the reader's thread.
using KeepAsking = FunctionRef<bool()>;

// How long to sleep where nobody has answered for `silence_ms`: ever longer, so that a camera without a media server
// costs nothing, and never so long that much more is lost when it comes back.
inline unsigned WaitInSilence(unsigned silence_ms, unsigned least_ms) {
    return std::clamp(silence_ms / 20, least_ms, 100U);
}

// Asks the media server for a position on behalf of a reader.  None when the question was given up, after some
// seconds or because `keep_asking` says so, or when the queue was removed: ask again.  `silence_ms` is the reader's
// own: how long it has waited since it got an answer.
std::optional<int> RequestPosition(const KeepAsking& keep_asking, unsigned& silence_ms, AVStreamCommand command,
                                   int type, int video_index);

// Throws away the answers that wait for `type`: an earlier process asked and was killed.
void DropAnswersOfEarlierProcess(int type);
