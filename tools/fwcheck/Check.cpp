#include "fwcheck/Check.h"

#include "fwcheck/Questions.h"
#include "image/ZempCreator.h"
#include "main/ArgParser.h"
#include <filesystem>

namespace fwcheck {

Places::Places()
    : downloads(ArgParser::getInstance()->getDownloadDirectory()),
      temporary(std::filesystem::path(ZempCreator::getTempFilename()).parent_path()),
      now(time(nullptr)) {}

bool check(const Places& places, const std::function<void(const Answer&)>& tell,
           const std::function<bool()>& isStopped) {
    Teller teller(tell);
    askDaemonAndBus(places, teller);
    const Wish wish = askConfiguration(teller);
    const std::optional<std::string> record = askRecord(places, teller);
    askClock(places, wish, teller);
    std::optional<plan::UpdatePlan> plan;
    const char* const reason = !wish.isNeeded     ? "no update is needed"
                               : wish.url.empty() ? "there is no URL"
                                                  : nullptr;
    if (reason == nullptr) {
        plan = askServer(wish, record, teller, isStopped);
        askSeal(places, wish, teller, isStopped);
    } else {
        teller.notAsked("server", reason);
        teller.notAsked("image", reason);
    }
    askSpace(places, plan && record ? &*plan : nullptr, teller);
    return teller.isGood();
}

} // namespace fwcheck
