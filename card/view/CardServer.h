// A card for a browser on this computer: the page, the card's files in ranges, its list, and clips of it.
//
// Only reads the card.  Listens on the loopback address alone, answers only under a random token and only to requests
// that name this very host and port, so that neither other computers nor other pages reach it.  Every request opens the
// card for itself; they may come at once.
//
//   GET /TOKEN/                             the page
//   GET /TOKEN/list.json                    sections, gaps, events: see index/ListJson.h
//   GET /TOKEN/file/NAME                    a file of the card, also in ranges; 500: its first MiB cannot be read
//                                           ("Cache-Control: no-cache": from the card itself)
//   GET /TOKEN/clip.mp4?from=S&to=S         what was recorded from second S to S (since 1970 UTC, both included), as
//                                           `recordcard export` makes it; where codec or picture change, &part=2, 3,
//                                           ... are the further files, and "X-Parts" tells their number.  404: nothing
#pragma once

#include <memory>
#include <string>

namespace card {

class CardServer {
  public:
    // Throws CardError when the card cannot be read or no port be had.
    explicit CardServer(std::string path);
    ~CardServer();

    const std::string& Address() const { return address_; }  // "http://127.0.0.1:PORT/TOKEN/"
    void Run();                                              // until Stop
    void Stop();                                             // any thread; Run has begun, or will

  private:
    struct Parts;

    std::string path_;
    std::string address_;
    std::unique_ptr<Parts> parts_;
};

}  // namespace card
