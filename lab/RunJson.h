// The result of a lab run for programs.
#ifndef LAB_RUNJSON_H
#define LAB_RUNJSON_H

#include "lab/LabRun.h"
#include <string>
#include <vector>

namespace lab {

// One JSON object with a line end. Text that is no UTF-8 is replaced.
std::string makeJson(const LabResult& result, const std::vector<LabEvent>& events,
                     const std::vector<std::string>& faults);

} // namespace lab

#endif
