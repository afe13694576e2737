// Draws the image as a strip, to scale, with the bytes that are fetched coloured and the requests numbered
// and listed below, as a picture in SVG.
#ifndef PLAN_STRIPDRAWING_H
#define PLAN_STRIPDRAWING_H

#include "plan/UpdatePlan.h"
#include <string>

namespace plan {

// One complete <svg> element, which may be a file of its own or stand in a page. What is thinner than it can
// be seen is drawn two pixels wide.
std::string drawStrip(const UpdatePlan& plan);

} // namespace plan

#endif
