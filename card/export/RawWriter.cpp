#include <cerrno>
#include <cstdio>

#include "export/ClipWriter.h"
#include "text/Error.h"

namespace card {

namespace {

class RawWriter : public ClipWriter {
  public:
    RawWriter(const std::string& path, ByteView head) : path_(path), file_(std::fopen(path.c_str(), "wbe")) {
        if (!file_) throw SystemError(path, errno);
        Write(head);
    }

    void Picture(ByteView unit, bool, const PictureTimes&) override { Write(unit); }
    void Sound(ByteView payload, Ticks) override { Write(payload); }
    void Chapter(Ticks, const std::string&) override {}
    void Finish() override {
        if (std::fflush(file_.get()) != 0) throw SystemError(path_, errno);
    }

  private:
    void Write(ByteView bytes) {
        if (bytes.empty()) return;
        if (std::fwrite(bytes.data(), 1, bytes.size(), file_.get()) != bytes.size()) throw SystemError(path_, errno);
    }

    struct Close {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };
    std::string path_;
    std::unique_ptr<std::FILE, Close> file_;
};

}  // namespace

std::unique_ptr<ClipWriter> OpenRawWriter(const std::string& path, ByteView head) {
    return std::make_unique<RawWriter>(path, head);
}

}  // namespace card
