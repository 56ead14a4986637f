#include "check/finding_list.h"

#include <cstddef>
#include <utility>

#include "check/finding_text.h"

namespace quorbix::virtdisk::internal {

void FindingList::Add(FindingKind kind, Numbers numbers) {
  AddFor([] { return std::string(); }, kind, numbers);
}

bool FindingList::Count(FindingKind kind) {
  return report.found[static_cast<std::size_t>(kind)]++ < CheckReport::kMostOfAKind;
}

void FindingList::Append(Finding finding) {
  finding.isDamage = IsDamage(finding.kind);
  finding.text = DescribeFinding(finding);
  report.findings.push_back(std::move(finding));
}

}  // namespace quorbix::virtdisk::internal
