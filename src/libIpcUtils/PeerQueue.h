// One question to a peer over its message queue, and the answer to it, within a limited time.
//
// A peer may have died holding a question, an earlier client may have been killed between question and answer, and
// the queue may be removed at any moment.  So nothing here blocks in the kernel, what waits before the question is
// thrown away, and an answer counts only when it is one to this question.
// Keeps no state.  Callers that share an answer type bring a lock: an exchange is one step.
#pragma once

// How long a caller has waited.
class Patience {
  public:
    explicit Patience(long seconds);
    bool Over() const;  // after `seconds` to `seconds` + 1

  private:
    const long end_;  // s since boot
};

enum class Reply {
    kTaken,         // the record holds the answer
    kNone,          // given up, or what came is no answer; the record is still the question
    kQueueRemoved,  // nothing came and nothing will; the same
};

struct Question {
    void* record;     // the question; takes the answer.  What a short answer leaves out stays the question's
    int size;         // bytes, message type included
    int answer_type;  // message type of the answers
    // Whether `answer` is one to `question`.
    bool (*is_answer)(const void* question, const void* answer);
};

Reply Ask(int qid, const Question& question, const Patience& patience);

// Sends the record, waiting while the queue is full.  kTaken: it is in the queue.
Reply Tell(int qid, void* record, int size, const Patience& patience);
