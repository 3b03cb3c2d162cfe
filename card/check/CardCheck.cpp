#include "check/CardCheck.h"

#include "RecordFormat.h"
#include "check/FatCheck.h"
#include "text/Error.h"
#include "volume/VolumeRescue.h"

namespace card {

namespace {

void CheckPlaces(const Volume& volume, Findings& findings) {
    if (volume.Raw() == nullptr) return;
    const std::optional<FoundLayout> layout = FindLayout(*volume.Raw());
    if (!layout || !LiesSo(volume, *layout)) return;
    for (const std::string& name : Misplaced(volume, *layout)) {
        findings.push_back({Finding::Level::Error, "directory-place", name, 0,
                            "the directory entry of " + name + " points at something else",
                            "what it holds is not found, and recording writes into another file", Finding::Mend::Volume,
                            0, false});
    }
}

Findings Check(const Volume& volume, const CheckProgress& progress, const CheckScope& scope) {
    Findings findings = CheckFat(volume);
    try {
        CheckPlaces(volume, findings);
    } catch (const CardError& error) {
        findings.push_back({Finding::Level::Error, "places-unread", "volume", 0,
                            std::string("not all that tells where the files belong can be read: ") + error.what(),
                            "whether the directory leads to the right places was not checked", Finding::Mend::Nothing,
                            0, false});
    }
    try {
        const Findings store = CheckStore(volume, progress, scope);
        findings.insert(findings.end(), store.begin(), store.end());
    } catch (const CardGone&) {
        throw;
    } catch (const CardError& error) {
        const bool lost = !volume.Has(RECORD_INDEX_NAME);
        findings.push_back({Finding::Level::Error, "index", RECORD_INDEX_NAME, 0, error.what(),
                            "nothing on the card can be found", lost ? Finding::Mend::Volume : Finding::Mend::System, 0,
                            false});
    }
    return findings;
}

}  // namespace

Findings CheckAll(const Volume& volume, const CheckProgress& progress) {
    return Check(volume, progress, {});
}

Findings CheckVolume(const Volume& volume) {
    return Check(volume, {}, {.files = std::set<uint32_t>{}, .visit = {}});
}

}  // namespace card
