// The next action of the update cycle, and what changes it.
#ifndef UPDATE_FWACTION_H
#define UPDATE_FWACTION_H

#include <string>

namespace FwAction {

// What the update handler does or waits for next.
enum NextAction : int {
    Unspecified = -1,
    NoAction = 0,
    ScanExistingFiles = 1,
    GetZempParts = 2,
    ParseZempParts = 3,
    FindNeededParts = 4, // has no printed name
    CompileUpdateZempFile = 5,
    SetReadyForUpdate = 6,
    WaitForFwUpdate = 7
};

// Why the next action changes.
enum class Cause {
    WantedWithoutStart,
    WantedWithStart,
    ScanFoundFile,
    ScanDone,
    NotNeeded,
    NothingToFetch,
    NeededWithoutStart,
    NeededWithStart,
    SealRead,
    DownloadComplete,
    AllParsed,
    StartDoubted,
    PartsMissing,
    PartsReady,
    CompileFailed,
    CompileComplete,
    InstalledAlready,
    FlagWritten,
    FlagLost,
    ForcedAgain
};

// Actions, as a set of bits.
class Set {
  public:
    template <typename... Actions>
    constexpr explicit Set(Actions... actions) : mBits((0U | ... | bitOf(actions))) {}
    constexpr bool contains(NextAction action) const { return (mBits & bitOf(action)) != 0; }
    constexpr Set operator|(Set other) const {
        other.mBits |= mBits;
        return other;
    }

  private:
    static constexpr unsigned bitOf(NextAction action) {
        return 1U << static_cast<unsigned>(action - Unspecified);
    }

    unsigned mBits;
};

// Left whenever the configuration changes, or when an answer comes that an earlier step asked for.
inline constexpr Set Any{Unspecified,           NoAction,          ScanExistingFiles,
                         GetZempParts,          ParseZempParts,    FindNeededParts,
                         CompileUpdateZempFile, SetReadyForUpdate, WaitForFwUpdate};

// What a changed configuration leads to while a request of the wanted version is still out.
inline constexpr Set Overtaken{NoAction, ScanExistingFiles, ParseZempParts, FindNeededParts};

// One change of the next action. The table has one row for each cause, in their order.
struct Transition {
    Cause cause;
    const char* event; // the cause in words
    Set from;
    NextAction to;
};

inline constexpr Transition Transitions[] = {
    {Cause::WantedWithoutStart, "another version is wanted, its start is not on disk", Any,
     ScanExistingFiles},
    {Cause::WantedWithStart, "another version is wanted, its start is on disk", Any, FindNeededParts},
    {Cause::ScanFoundFile, "a scan finds a file that is not known", Overtaken | Set(GetZempParts),
     ParseZempParts},
    {Cause::ScanDone, "a scan finds no such file", Set(ScanExistingFiles), NoAction},
    {Cause::NotNeeded, "no update is needed", Any, NoAction},
    {Cause::NothingToFetch, "an update is needed, but no version is set", Any, NoAction},
    {Cause::NeededWithoutStart, "an update is needed, its start is not on disk",
     Set(NoAction, GetZempParts, ParseZempParts, FindNeededParts, CompileUpdateZempFile), GetZempParts},
    {Cause::NeededWithStart, "an update is needed, its start is on disk",
     Set(NoAction, GetZempParts, ParseZempParts, FindNeededParts, CompileUpdateZempFile), FindNeededParts},
    {Cause::SealRead, "the seal of the release is read", Set(NoAction, GetZempParts, FindNeededParts),
     ScanExistingFiles},
    {Cause::DownloadComplete, "a download is complete", Overtaken | Set(GetZempParts), ParseZempParts},
    {Cause::AllParsed, "the last file is parsed", Overtaken, CompileUpdateZempFile},
    {Cause::StartDoubted, "the start is to be fetched anew", Set(NoAction, FindNeededParts), GetZempParts},
    {Cause::PartsMissing, "a part is missing", Set(NoAction, FindNeededParts), GetZempParts},
    {Cause::PartsReady, "every part is ready", Set(NoAction, FindNeededParts), CompileUpdateZempFile},
    {Cause::CompileFailed, "the compile fails", Overtaken | Set(CompileUpdateZempFile), ScanExistingFiles},
    {Cause::CompileComplete, "the image is compiled", Overtaken | Set(CompileUpdateZempFile),
     SetReadyForUpdate},
    {Cause::InstalledAlready, "the version is installed by now", Overtaken | Set(SetReadyForUpdate),
     NoAction},
    {Cause::FlagWritten, "the flag is written", Overtaken | Set(SetReadyForUpdate), WaitForFwUpdate},
    {Cause::FlagLost, "the flag went", Set(WaitForFwUpdate), SetReadyForUpdate},
    {Cause::ForcedAgain, "the update is forced", Set(WaitForFwUpdate), SetReadyForUpdate},
};

// The row of the cause.
const Transition& find(Cause cause);

// Printed name; "Unknown action (" value ")" for an action without one.
std::string getString(NextAction action);

} // namespace FwAction

#endif
