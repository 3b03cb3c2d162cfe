#include "volume/Fat32.h"

#include <gtest/gtest.h>

#include "fixture/CardFixture.h"
#include "fixture/Folder.h"
#include "fixture/StoreBytes.h"
#include "volume/Volume.h"

namespace {

using namespace fixture;
using card::Access;
using card::Chain;
using card::ChainEnd;
using card::Device;
using card::Fat32;

// A formatted image of two record files, and the means to spoil it.
class Image {
  public:
    Image() { Card{.files = 2}.RecordImage(place_); }

    const std::string& Path() const { return place_.Path(); }
    void Write(uint64_t offset, const std::string& bytes) const {
        Device::OpenCard(place_, Access::ReadWrite).WriteAt(offset, bytes.data(), bytes.size());
    }
    void SetEntry(const card::FatGeometry& geometry, uint32_t copy, uint32_t cluster, uint32_t value) const {
        Write(geometry.FatOffset(copy) + uint64_t{cluster} * 4, Word(value));
    }

  private:
    Place place_;
};

TEST(Fat32, TellsHowAChainEnds) {
    const Image image;
    const Device device = Device::Open(image.Path());
    const Fat32 clean(device);
    const card::FatGeometry geometry = clean.Geometry();
    const card::DirectoryEntry entry = *clean.Find("hi000001.mp4");
    const uint32_t damaged = entry.first_cluster + 100;  // 100 whole clusters and this one before the break
    const struct {
        uint32_t value;
        ChainEnd end;
    } cases[] = {{0, ChainEnd::Free},
                 {0x0FFFFFF7, ChainEnd::Bad},
                 {1, ChainEnd::OutOfRange},
                 {geometry.clusters + 2, ChainEnd::OutOfRange},
                 {entry.first_cluster, ChainEnd::TooLong},
                 {0x0FFFFFFF, ChainEnd::EndMark}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.value);
        image.SetEntry(geometry, 0, damaged, c.value);
        const Fat32 fat(device);
        const Chain chain = fat.Follow(entry.first_cluster, 70000);
        EXPECT_EQ(chain.end, c.end);
        if (c.end != ChainEnd::TooLong) {
            EXPECT_EQ(chain.clusters, 101u);
            EXPECT_EQ(chain.last_cluster == damaged || chain.last_cluster == c.value, true);
            EXPECT_EQ(fat.FileChain(entry).bytes, entry.size) << "the second table knows better";
        }
    }
    image.SetEntry(geometry, 1, damaged, 0);
    image.SetEntry(geometry, 0, damaged, 0);
    const card::StoreFile file = card::Volume::Open(image.Path()).OpenFile("hi000001.mp4");
    EXPECT_EQ(file.Size(), entry.size);
    EXPECT_EQ(file.Reachable(), 101u * geometry.ClusterBytes());
    char byte = 0;
    EXPECT_EQ(file.ReadAt(file.Reachable() - 1, &byte, 1), 1u);
    EXPECT_EQ(file.ReadAt(file.Reachable(), &byte, 1), 0u);
}

TEST(Fat32, ReadsAFileInSeveralPieces) {
    const Image image;
    const Device device = Device::Open(image.Path());
    const Fat32 clean(device);
    const card::FatGeometry geometry = clean.Geometry();
    const uint32_t bytes = geometry.ClusterBytes();
    // "index001.bin" takes its second cluster from the free space, and goes on as before.
    const card::DirectoryEntry entry = *clean.Find("index001.bin");
    const uint32_t elsewhere = geometry.clusters;
    for (const uint32_t copy : {0u, 1u}) {
        image.SetEntry(geometry, copy, entry.first_cluster, elsewhere);
        image.SetEntry(geometry, copy, elsewhere, entry.first_cluster + 2);
    }
    image.Write(geometry.ClusterOffset(entry.first_cluster) + bytes - 2, "ab");
    image.Write(geometry.ClusterOffset(elsewhere), "cd");
    image.Write(geometry.ClusterOffset(elsewhere) + bytes - 2, "ef");
    image.Write(geometry.ClusterOffset(entry.first_cluster + 2), "gh");
    const card::StoreFile file = card::Volume::Open(image.Path()).OpenFile("index001.bin");
    EXPECT_EQ(file.Extents().size(), 3u);
    EXPECT_EQ(file.Reachable(), entry.size);
    std::string read(bytes + 4, '\0');
    EXPECT_EQ(file.ReadAt(bytes - 2, read.data(), read.size()), read.size());
    EXPECT_EQ(read.substr(0, 4) + read.substr(bytes, 4), "abcdefgh");
}

}  // namespace
