// Asks the file handler to parse a fragment's file.
#ifndef WORKITEMS_PARSEFILEREQUEST_H
#define WORKITEMS_PARSEFILEREQUEST_H

#include "image/ZempParser.h"
#include "update/FileFragment.h"
#include "workitems/FwWorkItem.h"
#include <atomic>
#include <memory>

class ParseFileRequest : public FwWorkItem {
  public:
    enum ParseStatus : int { ParsePending = 0, ParseCopmplete = 1, ParseNoData = 2, ParseFailed = 3 };

    // `fragment` is not owned, must outlive the request, and may be null.
    explicit ParseFileRequest(FileFragment* fragment)
        : FwWorkItem(FwWorkItem::ParseFileRequest), mFileFragment(fragment) {}

    // Frees the parser, not the parts it found: those belong to whoever takes the result.
    ~ParseFileRequest() override = default;

    std::string getStatus() const override;
    ParseStatus getParseStatus() const { return mParseStatus; }
    void setParseStatus(ParseStatus status) { mParseStatus = status; }

    FileFragment* getFileFragment() const { return mFileFragment; }

    // Makes the parser; called once, before the request is queued.
    void initializeZempParser() { mZempParser = std::make_unique<ZempParser>(); }

    // Owned by the request; null until initializeZempParser().
    ZempParser* getZempParser() const { return mZempParser.get(); }

    // The fragment's file name and type; an empty name and UnknownType without fragment.
    std::string getFilename() const;
    FileFragment::FragmentType getFragmentType() const;

    // Type name, file name in parentheses, status. Hides the base form.
    std::string toString() const;

  private:
    std::atomic<ParseStatus> mParseStatus{ParsePending}; // set by the worker, logged by the main thread
    FileFragment* const mFileFragment;
    std::unique_ptr<ZempParser> mZempParser;
};

#endif
