// The search for the formatter's layout on a card of real size: the structures it goes by say anything, and what is
// found fits the card.
#include "RecordFormat.h"
#include "SmallCard.h"
#include "volume/VolumeRescue.h"

namespace {

constexpr uint64_t kBytes = uint64_t{1800} << 20;  // room for three files of 256 MiB

// Changes in the places that are looked at, in a card that is a hole otherwise.
class Card {
  public:
    Card() {
        MUST(prestore::PlanVolume({.bytes = kBytes}, 70, plan_).empty());
        directory_ = prestore::RootDirectory(plan_, {fuzz::kTime, 0});
    }

    const fuzz::MemoryFile& File() const { return file_; }
    void Lay(fuzz::Input& in) {
        constexpr int kChangesMax = 48;
        file_.Clear(kBytes);
        for (int i = 0; i < kChangesMax && !in.Empty(); ++i) {
            const uint8_t place = in.Byte();
            const uint32_t number = in.Byte();
            const uint64_t at = Place(place, number % plan_.Files(), number);
            if (place >= 128) {
                WriteRight(place, at, number % plan_.Files());
            } else {
                const fuzz::Bytes bytes = in.Take(in.Byte());
                file_.Write(at, bytes.first(std::min<size_t>(bytes.size(), kBytes - at)));
            }
        }
    }

  private:
    uint64_t Place(uint8_t kind, uint32_t file, uint32_t number) const {
        const uint32_t first = plan_.File(file).first_cluster;
        const uint64_t link = plan_.FatOffset() + (first - 1) * uint64_t{4};
        const uint64_t entry = plan_.ClusterOffset(prestore::kRootCluster) + file * uint64_t{64};
        const uint64_t data = plan_.ClusterOffset(first);
        const uint64_t partition = 446 + number % 64;
        const uint64_t places[] = {
            0, plan_.IndexHeads().offset, link, link + plan_.FatBytes(), entry, partition, data, data};
        return places[kind % 8];
    }
    // What the formatter and the recorder write there.
    void WriteRight(uint8_t kind, uint64_t at, uint32_t file) {
        if (kind % 8 == 1) {
            RecordSystemInfoHead_S head{};
            AV_SystemInfoHeadParamInit(&head, kBytes >> 20, plan_.store.vedio_num);
            file_.Write(at, &head, sizeof head);
        } else if (kind % 8 == 2 || kind % 8 == 3) {
            file_.Write(at, &prestore::kChainEnd, sizeof prestore::kChainEnd);
        } else if (kind % 8 == 4) {
            file_.Write(at, directory_.data() + file * 64, 64);
        } else if (kind % 8 > 5) {
            file_.Write(at, record_file::kStreamHead, record_file::kStreamHeadSize);
            file_.Write(at + record_file::kStreamHeadSize, "\0\0\1\xBA", 4);
        }
    }

    fuzz::MemoryFile file_;
    prestore::VolumePlan plan_;
    std::vector<std::byte> directory_;
};

}  // namespace

void fuzz::Feed(Input& in) {
    static Card card;
    card.Lay(in);
    const card::Device device = card::Device::Open(card.File().Path());
    const std::optional<card::FoundLayout> found = card::FindLayout(device);
    if (!found) return;
    const prestore::VolumePlan& plan = found->plan;
    MUST(found->evidence > 0 && plan.store.vedio_num > 0 && plan.store.vedio_num <= RECORD_FILE_MAX);
    MUST(found->base + plan.device.bytes <= device.Size());
    for (uint32_t i = 0; i < plan.Files(); ++i) {
        const prestore::StoredFile file = plan.File(i);
        MUST(found->base + plan.ClusterOffset(file.first_cluster) + file.size <= device.Size());
    }
}
