#include "common/maskedurl.h"
#include "common/printable.h"
#include "fwcheck/Questions.h"
#include "imagefile/NumberText.h"
#include <stdexcept>

namespace fwcheck {

namespace {

// What helps, by what the reason has in it; the first that fits.
constexpr struct {
    const char* reason;
    const char* advice;
} Advice[] = {
    {"ignores byte ranges", "use a server that answers them with 206"},
    {"does not say which bytes", "use a server that sends Content-Range"},
    {"answered 401", "user and password belong into the URL"},
    {"answered 403", "see who may read the image there"},
    {"answered 404", "put the image there, or configure the right URL"},
    {"answered 30", "the daemon follows no redirection: configure the URL it leads to"},
    {"ertificate", "see the server's certificate, the authorities of this terminal, and its clock"},
    {"is not an image", "put an image there, or configure the right URL"},
};

// The image's name, which may hold a password, is taken out.
std::string explain(const std::string& message, const std::string& url) {
    const std::string prefix = url + ": ";
    std::string reason = message.rfind(prefix, 0) == 0 ? message.substr(prefix.size()) : message;
    for (size_t at = 0; (at = reason.find(url, at)) != std::string::npos;)
        reason.replace(at, url.size(), maskedUrl(url));
    for (const auto& [part, advice] : Advice)
        if (reason.find(part) != std::string::npos)
            return printable(reason) + ": " + advice;
    return printable(reason);
}

} // namespace

std::optional<plan::UpdatePlan> askServer(const Wish& wish, const std::optional<std::string>& record,
                                          Teller& teller, const std::function<bool()>& isStopped) {
    std::unique_ptr<imagefile::ImageSource> image;
    try {
        image = imagefile::openImage(wish.url, isStopped);
    } catch (const std::exception& error) {
        teller.wrong("server", explain(error.what(), wish.url));
        teller.notAsked("image", "the server cannot be used");
        return {};
    }
    teller.ok("server", "it answers byte ranges");
    try {
        const plan::UpdatePlan plan = plan::makePlan(*image, record.value_or(""), isStopped);
        if (!wish.version.empty() && plan.release != wish.version) {
            teller.wrong("image", "it is release " + printable(plan.release) + ", configured is " +
                                      wish.version + ": configure the URL of that, or this version");
        } else if (!plan.isReady) {
            teller.wrong("image", plan.complaints.empty() ? "its update does not become ready"
                                                          : "its update does not become ready: " +
                                                                printable(plan.complaints.front()));
        } else {
            teller.ok("image", "release " + plan.release + ", " +
                                   imagefile::groupDigits(plan.fetchedBytes()) + " of " +
                                   imagefile::groupDigits(plan.imageBytes) + " bytes to fetch, " +
                                   plan.durationText());
            return plan;
        }
    } catch (const std::exception& error) {
        teller.wrong("image", explain(error.what(), wish.url));
    }
    return {};
}

} // namespace fwcheck
