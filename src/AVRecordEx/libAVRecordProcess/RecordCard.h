// The card that is in: whether it is there, and whether the heads in memory are its own.
//
// Owns what is known of the card: its identity, and the heads as this process last read or wrote them.  A card can be
// taken out, formatted or exchanged between two looks; heads of one card written into another would name footage
// that is not there and bury what is.  So nothing is written before both were compared.
// Threads: the control loop's alone, but for CardWasPulled, which any thread may ask.
// Invariant: nothing here creates a file.
#pragma once

// Whether the card's device node is gone.  Whatever else keeps one from looking at it is no pulled card.
bool CardWasPulled();

// Reads the system head and the current file's head from the card into memory; false (logged) leaves them zero.
bool CardLoadHeads();

// The heads in memory are now the card's: a run wrote them there, or tried to.
void CardRememberHeads();

enum class CardMatch {
    Ours,    // it has the heads that are remembered
    Other,   // it has others: they must be loaded
    Unknown  // it cannot be told now (logged)
};

// Compares the card with what is remembered of it.  Of our own card, heads that it refused when they were last
// written are written again.
CardMatch CardMatchHeads();

// The current record file is left if it is not the whole card that refuses what is written: true, and the heads must be
// loaded anew, with the next file as the current one.
bool CardLeaveFile();

// Tries the section head again that the card refused at the end of a run; to be called now and then.
void CardRetryRefused();
