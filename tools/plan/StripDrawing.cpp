#include "plan/StripDrawing.h"

#include "imagefile/NumberText.h"
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numeric>
#include <sstream>
#include <vector>

namespace plan {

namespace {

// All in pixels.
constexpr double Width = 1200;
constexpr double Margin = 40;
constexpr double Span = Width - 2 * Margin;
constexpr double StripHeight = 60;
constexpr double LabelRow = 22;  // height of a row of part names
constexpr double MarkerRow = 26; // height of a row of request numbers
constexpr double MarkerWidth = 24;
constexpr double TableRow = 20;
constexpr double LeastWidth = 2;
constexpr double CharacterWidth = 7.4; // of the labels' font, on the safe side
constexpr size_t TableColumnRows = 16; // more requests take a further column, up to three

constexpr const char* NotFetched = "#e6e9ed";

// The colours above and below are for light pages; these take their places on dark ones.
constexpr const char* DarkStyle =
    "<style>@media (prefers-color-scheme: dark) {\n"
    "  svg { fill: #e4e7eb }\n"
    "  [fill=\"#ffffff\"] { fill: #181b1f } [stroke=\"#ffffff\"] { stroke: #181b1f }\n"
    "  [fill=\"#e6e9ed\"] { fill: #39414a } [fill=\"#616e7c\"] { fill: #9aa5b1 }\n"
    "  [stroke=\"#1f2933\"] { stroke: #e4e7eb } [stroke=\"#cbd2d9\"] { stroke: #4a545f }\n"
    "  [fill=\"#b3261e\"] { fill: #ff8a80 }\n"
    "}</style>\n";

const char* colourOf(Request::What what) {
    switch (what) {
    case Request::Start:
    case Request::RestOfStart:
        return "#7b4fb5";
    case Request::Header:
        return "#d9730d";
    case Request::HeaderAndBody:
    case Request::Body:
        return "#2470c2";
    }
    return NotFetched;
}

std::string escape(const std::string& text) {
    std::string result;
    for (const char c : text) {
        if (c == '&')
            result += "&amp;";
        else if (c == '<')
            result += "&lt;";
        else if (c == '>')
            result += "&gt;";
        else
            result += static_cast<unsigned char>(c) < 0x20 || static_cast<unsigned char>(c) > 0x7e ? '?' : c;
    }
    return result;
}

// A label and where its centre should be.
struct Label {
    double wanted;
    double width;
    double centre = 0;
    size_t row = 0;
};

// Finds places for labels in as few rows as it takes, none over another, each as near to its place as the
// ones to its left let it be. Returns the number of rows.
size_t arrange(std::vector<Label>& labels) {
    const double total = std::accumulate(labels.begin(), labels.end(), 0.0,
                                         [](double sum, const Label& label) { return sum + label.width; });
    const auto rows = static_cast<size_t>(std::ceil(total / (Span * 0.8)));
    std::vector<size_t> order(labels.size());
    std::iota(order.begin(), order.end(), size_t{0});
    std::stable_sort(order.begin(), order.end(),
                     [&](size_t a, size_t b) { return labels[a].wanted < labels[b].wanted; });
    for (size_t row = 0; row < rows; ++row) {
        double left = Margin;
        std::vector<Label*> placed;
        for (size_t i = row; i < order.size(); i += rows) {
            Label& label = labels[order[i]];
            label.row = row;
            label.centre = std::max(label.wanted, left + label.width / 2);
            left = label.centre + label.width / 2;
            placed.push_back(&label);
        }
        double right = Width - Margin;
        for (auto label = placed.rbegin(); label != placed.rend(); ++label) {
            (*label)->centre = std::min((*label)->centre, right - (*label)->width / 2);
            right = (*label)->centre - (*label)->width / 2;
        }
    }
    return rows;
}

class Drawing {
  public:
    explicit Drawing(const UpdatePlan& plan) : mPlan(plan), mParts(plan.parts) {
        std::sort(mParts.begin(), mParts.end(),
                  [](const PlacedPart& a, const PlacedPart& b) { return a.offset < b.offset; });
        const uint64_t startEnd = mParts.empty() ? plan.imageBytes : mParts.front().offset;
        mParts.insert(mParts.begin(), {"start", 0, startEnd});
    }

    std::string draw() {
        drawHeading();
        drawPartNames();
        drawStrip();
        drawScale();
        drawMarkers();
        drawScaleNumbers();
        drawTable();
        std::ostringstream svg;
        svg << "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 " << Width << " " << mY
            << "\" width=\"100%\" style=\"max-width:" << Width
            << "px\" font-family=\"DejaVu Sans, Verdana, sans-serif\" font-size=\"12\" fill=\"#1f2933\">\n"
            << DarkStyle << "<rect width=\"100%\" height=\"100%\" fill=\"#ffffff\"/>\n"
            << mOut.str() << "</svg>\n";
        return svg.str();
    }

  private:
    double x(uint64_t offset) const {
        const uint64_t inside = std::min(offset, mPlan.imageBytes);
        return Margin + Span * static_cast<double>(inside) / static_cast<double>(mPlan.imageBytes);
    }

    void text(double atX, double atY, const std::string& content, const std::string& attributes = "") {
        mOut << "<text x=\"" << atX << "\" y=\"" << atY << "\"" << attributes << ">" << escape(content)
             << "</text>\n";
    }

    void line(double x1, double y1, double x2, double y2, const char* colour) {
        mOut << "<line x1=\"" << x1 << "\" y1=\"" << y1 << "\" x2=\"" << x2 << "\" y2=\"" << y2
             << "\" stroke=\"" << colour << "\"/>\n";
    }

    void rectangle(double atX, double atY, double width, double height, const char* colour) {
        mOut << "<rect x=\"" << atX << "\" y=\"" << atY << "\" width=\"" << width << "\" height=\"" << height
             << "\" fill=\"" << colour << "\"/>\n";
    }

    void drawHeading() {
        text(Margin, 36, "Update to " + mPlan.release, " font-size=\"20\" font-weight=\"bold\"");
        char figures[128];
        snprintf(figures, sizeof figures, " bytes (%u %%), %s at %s bytes per second",
                 static_cast<unsigned>(mPlan.fetchedBytes() * 100 / mPlan.imageBytes),
                 mPlan.durationText().c_str(), imagefile::groupDigits(UpdatePlan::BytesPerSecond).c_str());
        text(Margin, 58,
             std::to_string(mPlan.requests.size()) + " requests fetch " +
                 imagefile::groupDigits(mPlan.fetchedBytes()) + " of " +
                 imagefile::groupDigits(mPlan.imageBytes) + figures);
        if (!mPlan.isReady)
            text(Margin, 78, "The update does not become ready.", " fill=\"#b3261e\" font-weight=\"bold\"");
        const std::pair<const char*, const char*> legend[] = {{colourOf(Request::Start), "image start"},
                                                              {colourOf(Request::Header), "header"},
                                                              {colourOf(Request::Body), "body"},
                                                              {NotFetched, "not fetched"}};
        double atX = Width - Margin - 390;
        for (const auto& [colour, name] : legend) {
            rectangle(atX, 25, 14, 14, colour);
            text(atX + 20, 36, name);
            atX += 100;
        }
        mY = 92;
    }

    void drawPartNames() {
        std::vector<Label> labels;
        std::vector<std::string> names;
        for (const PlacedPart& part : mParts) {
            names.push_back(part.name + "  " + imagefile::shortBytes(part.size));
            labels.push_back({(x(part.offset) + x(part.offset + part.size)) / 2,
                              CharacterWidth * static_cast<double>(names.back().size() + 2)});
        }
        const size_t rows = arrange(labels);
        mStripY = mY + static_cast<double>(rows) * LabelRow + 18;
        const auto baselineOf = [this](const Label& label) {
            return mY + static_cast<double>(label.row) * LabelRow + 14;
        };
        for (const Label& label : labels) {
            line(label.centre, baselineOf(label) + 4, label.centre, mStripY - 14, "#9aa5b1");
            line(label.centre, mStripY - 14, label.wanted, mStripY, "#9aa5b1");
        }
        for (size_t i = 0; i < labels.size(); ++i) {
            const double baseline = baselineOf(labels[i]);
            rectangle(labels[i].centre - labels[i].width / 2 + 4, baseline - 12, labels[i].width - 8, 16,
                      "#ffffff");
            text(labels[i].centre, baseline, names[i], " text-anchor=\"middle\"");
        }
    }

    void drawStrip() {
        rectangle(Margin, mStripY, Span, StripHeight, NotFetched);
        // The thin ones last, so that they are seen.
        for (const bool isBody : {true, false}) {
            for (const Request& request : mPlan.requests) {
                if ((request.what == Request::Body || request.what == Request::HeaderAndBody) != isBody)
                    continue;
                const double left = x(request.first);
                const double width = std::max(LeastWidth, x(request.first + request.bytes) - left);
                rectangle(std::min(left, Width - Margin - width), mStripY, width, StripHeight,
                          colourOf(request.what));
            }
        }
        // Where one part ends and the next begins shows above and below the strip.
        for (const PlacedPart& part : mParts)
            for (const double y : {mStripY - 6, mStripY + StripHeight})
                line(x(part.offset), y, x(part.offset), y + 6, "#1f2933");
        mOut << "<rect x=\"" << Margin << "\" y=\"" << mStripY << "\" width=\"" << Span << "\" height=\""
             << StripHeight << "\" fill=\"none\" stroke=\"#616e7c\"/>\n";
        mY = mStripY + StripHeight;
    }

    // A round number of bytes between the marks of the scale, five to twelve of them.
    uint64_t scaleStep() const {
        uint64_t step = 1;
        for (;; step *= 10)
            for (const uint64_t factor : {1U, 2U, 5U})
                if (mPlan.imageBytes / (step * factor) <= 12)
                    return step * factor;
    }

    void drawScale() {
        const uint64_t step = scaleStep();
        for (uint64_t offset = 0; offset <= mPlan.imageBytes; offset += step)
            line(x(offset), mY, x(offset), mY + 5, "#616e7c");
        mY += 24;
    }

    // After the lines that lead through them.
    void drawScaleNumbers() {
        const uint64_t step = scaleStep();
        for (uint64_t offset = 0; offset <= mPlan.imageBytes; offset += step)
            text(x(offset), mStripY + StripHeight + 20, offset == 0 ? "0" : imagefile::shortBytes(offset),
                 " text-anchor=\"middle\" font-size=\"10\" fill=\"#616e7c\" stroke=\"#ffffff\" "
                 "stroke-width=\"4\" paint-order=\"stroke\"");
    }

    void drawMarker(double atX, double atY, size_t number) {
        mOut << "<circle cx=\"" << atX << "\" cy=\"" << atY << "\" r=\"9.5\" fill=\""
             << colourOf(mPlan.requests[number].what) << "\"/>\n";
        text(atX, atY + 4, std::to_string(number + 1),
             " text-anchor=\"middle\" font-size=\"10\" fill=\"#fff\""); // on any paper
    }

    void drawMarkers() {
        std::vector<Label> labels;
        for (const Request& request : mPlan.requests)
            labels.push_back({(x(request.first) + x(request.first + request.bytes)) / 2, MarkerWidth});
        const size_t rows = arrange(labels);
        const double top = mY + 26;
        for (const Label& label : labels) {
            line(label.wanted, mStripY + StripHeight, label.wanted, mY, "#cbd2d9");
            line(label.wanted, mY, label.centre, top - 6, "#9aa5b1");
            line(label.centre, top - 6, label.centre, top + static_cast<double>(label.row) * MarkerRow,
                 "#9aa5b1");
        }
        for (size_t i = 0; i < labels.size(); ++i)
            drawMarker(labels[i].centre, top + 4 + static_cast<double>(labels[i].row) * MarkerRow, i);
        mY = top + static_cast<double>(rows) * MarkerRow + 6;
    }

    void drawTable() {
        const size_t count = mPlan.requests.size();
        const size_t columns = std::clamp<size_t>((count + TableColumnRows - 1) / TableColumnRows, 1, 3);
        const size_t rows = (count + columns - 1) / columns;
        const double width = Span / static_cast<double>(columns);
        for (size_t i = 0; i < count; ++i) {
            const Request& request = mPlan.requests[i];
            const size_t column = i / rows;
            const double left = Margin + static_cast<double>(column) * width;
            const double baseline = mY + static_cast<double>(i % rows) * TableRow + 14;
            drawMarker(left + 10, baseline - 4, i);
            text(left + 28, baseline, request.range, " font-size=\"11\"");
            text(left + 205, baseline, imagefile::shortBytes(request.bytes),
                 " font-size=\"11\" text-anchor=\"end\"");
            text(left + 215, baseline, getText(request), " font-size=\"11\"");
        }
        mY += static_cast<double>(rows) * TableRow + 16;
    }

    const UpdatePlan& mPlan;
    std::vector<PlacedPart> mParts; // by offset, the start first
    std::ostringstream mOut;
    double mY = 0; // where the next piece begins
    double mStripY = 0;
};

} // namespace

std::string drawStrip(const UpdatePlan& plan) {
    return Drawing(plan).draw();
}

} // namespace plan
