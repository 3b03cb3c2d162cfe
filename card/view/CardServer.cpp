#include "view/CardServer.h"

#include <fcntl.h>
#include <httplib.h>
#include <sys/random.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <thread>
#include <vector>

#include "clip/Clip.h"
#include "export/Exporter.h"
#include "index/CardIndex.h"
#include "index/ListJson.h"
#include "page/ViewerPage.h"
#include "text/Error.h"
#include "text/Json.h"
#include "volume/Device.h"
#include "volume/Volume.h"

namespace card {

namespace {

namespace fs = std::filesystem;
using httplib::Request;
using httplib::Response;

constexpr char kHost[] = "127.0.0.1";
constexpr size_t kPiece = 1u << 20;  // bytes handed on at a time

std::string RandomToken() {
    std::array<unsigned char, 16> bytes;
    if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
        throw SystemError("no random number", errno);
    }
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string token;
    for (const unsigned char byte : bytes) {
        token += kDigits[byte >> 4];
        token += kDigits[byte & 15];
    }
    return token;
}

// A folder that goes with all that is in it.
class TemporaryFolder {
  public:
    TemporaryFolder() {
        std::string name = (fs::temp_directory_path() / "recordcard-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) throw SystemError(name, errno);
        path_ = name;
    }
    ~TemporaryFolder() {
        std::error_code nobody_minds;  // it lies in the folder for temporary files
        fs::remove_all(path_, nobody_minds);
    }
    std::string File(const char* name) const { return std::string(path_).append("/").append(name); }

  private:
    std::string path_;
};

// Only names that a card has: a folder may hold other things.
bool OfStore(const std::string& name) {
    if (name == RECORD_INDEX_NAME || name == RECORD_EVENT_NAME) return true;
    return Volume::RecordFileNumber(name).has_value();
}

// Hands on `size` bytes from `read`, in the ranges asked for.
template <typename Read>
void Provide(Response& response, uint64_t size, const char* type, Read read) {
    response.set_content_provider(
        static_cast<size_t>(size), type, [read](size_t offset, size_t length, httplib::DataSink& sink) {
            std::vector<char> bytes(std::min(length, kPiece));
            try {
                const size_t got = read(offset, bytes.data(), bytes.size());
                return got != 0 && sink.write(bytes.data(), got);
            } catch (const CardError&) {
                return false;  // the browser sees a connection that broke off, and the page says so
            }
        });
}

std::optional<uint32_t> NumberOf(const Request& request, const char* name) {
    const std::string text = request.get_param_value(name);
    uint32_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

// In chunks: of a whole body a range that was asked for would be cut, or refused with another status.
void Refuse(Response& response, int status, const std::string& why) {
    response.status = status;
    response.set_chunked_content_provider("text/plain", [text = why + "\n"](size_t, httplib::DataSink& sink) {
        const bool sent = sink.write(text.data(), text.size());
        sink.done();
        return sent;
    });
}

std::optional<uint64_t> SizeOf(const Volume& volume, const std::string& name) {
    try {
        return volume.OpenFile(name).Reachable();
    } catch (const CardError&) {
        return std::nullopt;
    }
}

std::string GivenFiles(const Volume& volume) {
    JsonText json;
    json.Open('{').Field("name", volume.Path()).Key("files").Open('[');
    for (const std::string& name : volume.Names()) {
        if (!OfStore(name)) continue;
        json.Open('{')
            .Field("path", std::string("/card/").append(name))
            .Field("url", std::string("file/").append(name));
        if (const auto size = SizeOf(volume, name)) json.Field("size", *size);  // without: it cannot be opened
        json.Close('}');
    }
    json.Close(']').Field("wholeDirectory", volume.DirectoryIsWhole()).Close('}');
    return json.Text();
}

// Throws CardError when the first piece of what is asked for cannot be read: so that it can still be told.
void TryRange(const StoreFile& file, const Request& request) {
    if (request.ranges.size() != 1 || request.ranges[0].first < 0) return;
    const auto [first, last] = request.ranges[0];
    const auto begin = static_cast<uint64_t>(first);
    if (request.get_header_value("Cache-Control") == "no-cache" && !file.ReadsAgain(begin))
        throw CardError(file.Name() + ": byte " + std::to_string(begin) + " cannot be read from the card itself");
    const uint64_t wanted = last < first ? kPiece : static_cast<uint64_t>(last - first) + 1;
    std::vector<char> bytes(static_cast<size_t>(std::min<uint64_t>(wanted, kPiece)));
    file.ReadAt(begin, bytes.data(), bytes.size());
}

void SendFile(const std::string& path, const std::string& name, const Request& request, Response& response) {
    const Volume volume = Volume::Open(path);
    if (!OfStore(name) || !volume.Has(name)) return Refuse(response, 404, "There is no such file");
    const StoreFile file = volume.OpenFile(name);
    TryRange(file, request);
    Provide(response, file.Reachable(), "application/octet-stream",
            [file](uint64_t offset, void* buffer, size_t length) { return file.ReadAt(offset, buffer, length); });
}

// The files that a clip misses something of, for want of being there or readable.
std::string Lost(const Volume& volume, const CardIndex& index, uint32_t from, uint32_t to) {
    std::string names;
    const auto add = [&names](const std::string& name) { names += (names.empty() ? "" : ", ") + name; };
    for (const LostFile& lost : index.Lost()) {
        if (lost.Touches(from, to)) add(lost.name);
    }
    for (const UnreadPart& part : volume.Unread()) add(part.file);
    return names;
}

void SendClip(const std::string& path, const Request& request, Response& response) {
    const auto from = NumberOf(request, "from");
    const auto to = NumberOf(request, "to");
    const uint32_t part = request.has_param("part") ? NumberOf(request, "part").value_or(0) : 1;
    if (!from || !to || *to < *from || part == 0)
        return Refuse(response, 400, "from and to are seconds since 1970 UTC");
    const Volume volume = Volume::OpenToSalvage(path);
    const CardIndex index(volume);
    const Selection selection = SelectTimes(index, *from, *to);
    const TemporaryFolder folder;
    Exporter exporter(index, folder.File("clip.mp4"), OutputFiles::Mode::New, TimeStyle{.utc = true});
    const ExportReport report = exporter.Run(selection, [](uint64_t) {});
    std::string lost = Lost(volume, index, *from, *to);
    if (part > report.parts.size())
        return Refuse(response, 404, lost.empty() ? "Nothing was recorded then" : "Cannot be read: " + lost);
    // Open, it outlives its folder.
    const auto file = std::make_shared<const Device>(Device::Open(report.parts[part - 1].path));
    response.set_header("X-Parts", std::to_string(report.parts.size()));
    if (!lost.empty()) response.set_header("X-Unread", lost);
    Provide(response, file->Size(), "video/mp4",
            [file](uint64_t offset, void* buffer, size_t length) { return file->ReadAt(offset, buffer, length); });
}

}  // namespace

struct CardServer::Parts {
    httplib::Server server;
    std::atomic<bool> ended = false;  // by Run
};

CardServer::CardServer(std::string path) : path_(std::move(path)), parts_(std::make_unique<Parts>()) {
    { const CardIndex readable(Volume::OpenToSalvage(path_)); }
    httplib::Server& server = parts_->server;
    const int port = server.bind_to_any_port(kHost);
    if (port <= 0) throw SystemError("no port on " + std::string(kHost), errno);
    const std::string host = std::string(kHost) + ":" + std::to_string(port);
    const std::string root = std::string("/").append(RandomToken());
    address_ = "http://" + host + root + "/";
    server.set_pre_routing_handler([host, root](const Request& request, Response& response) {
        const bool known = request.path.rfind(root + "/", 0) == 0 && request.get_header_value("Host") == host;
        if (known && request.method == "GET") return httplib::Server::HandlerResponse::Unhandled;
        Refuse(response, 404, "There is nothing here");
        return httplib::Server::HandlerResponse::Handled;
    });
    server.set_default_headers(
        {{"Cache-Control", "no-store"}, {"X-Content-Type-Options", "nosniff"}, {"Referrer-Policy", "no-referrer"}});
    const auto answer = [&server, root](const std::string& pattern, auto action) {
        server.Get(root + pattern, [action](const Request& request, Response& response) {
            try {
                action(request, response);
            } catch (const std::exception& error) {
                Refuse(response, 500, error.what());
            }
        });
    };
    answer("/", [this, host](const Request&, Response& response) {
        response.set_content(ViewerPage(GivenFiles(Volume::Open(path_)), "http://" + host), "text/html; charset=utf-8");
    });
    answer("/list\\.json", [this](const Request&, Response& response) {
        const Volume volume = Volume::OpenToSalvage(path_);
        response.set_content(ListJson(CardIndex(volume)), "application/json");
    });
    answer("/file/([A-Za-z0-9.]+)", [this](const Request& request, Response& response) {
        SendFile(path_, request.matches[1].str(), request, response);
    });
    answer("/clip\\.mp4", [this](const Request& request, Response& response) { SendClip(path_, request, response); });
}

CardServer::~CardServer() = default;

void CardServer::Run() {
    parts_->server.listen_after_bind();
    parts_->ended = true;
}

void CardServer::Stop() {
    // The library forgets a stop that comes before it listens.
    while (!parts_->server.is_running() && !parts_->ended) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    parts_->server.stop();
}

}  // namespace card
