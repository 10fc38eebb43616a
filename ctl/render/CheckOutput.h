/// The report of the checks as text and as JSON.
#pragma once

#include <ostream>

#include "ctl/check/Findings.h"

namespace velarix::ctl
{

/// One paragraph for each finding: "FILE:LINE: error: WHAT [ID]", what happens,
/// how to fix it; then what was not checked, then the count.
void printReport(std::ostream& out, const CheckReport& report, bool colour);

/// {"findings": [...], "not_checked": [...], "errors": N, "warnings": N}; the
/// line is null where there is none.
void printReportJson(std::ostream& out, const CheckReport& report);

} // namespace velarix::ctl
