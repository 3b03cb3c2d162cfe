#include "check/CardCheck.h"

#include "RecordFormat.h"
#include "check/FatCheck.h"
#include "text/Error.h"

namespace card {

Findings CheckAll(const Volume& volume, const CheckProgress& progress) {
    Findings findings = CheckFat(volume);
    try {
        const Findings store = CheckStore(volume, progress);
        findings.insert(findings.end(), store.begin(), store.end());
    } catch (const CardError& error) {
        const bool lost = !volume.Has(RECORD_INDEX_NAME);
        findings.push_back({Finding::Level::Error, "index", RECORD_INDEX_NAME, 0, error.what(),
                            "nothing on the card can be found", lost ? Finding::Mend::Volume : Finding::Mend::System,
                            0});
    }
    return findings;
}

}  // namespace card
