// Asks the file handler to write the update image.
#ifndef WORKITEMS_COMPILEUPDATEZEMPREQUEST_H
#define WORKITEMS_COMPILEUPDATEZEMPREQUEST_H

#include "image/ZempCreator.h"
#include "workitems/FwWorkItem.h"
#include <map>
#include <memory>

class ZempPart;

class CompileUpdateZempRequest : public FwWorkItem {
  public:
    enum CompileStatus : int { CompilePending = 0, CompileComplete = 1, CompileFailed = 2 };

    // Copies the map of content index to part; the parts are not owned and must outlive the request.
    // `voucher` vouches for the release, and is not null.
    CompileUpdateZempRequest(
        const std::string& filename, const std::map<const unsigned, ZempPart*>& parts,
        std::shared_ptr<const seal::Voucher> voucher = std::make_shared<const seal::Voucher>());
    ~CompileUpdateZempRequest() override;

    std::string getStatus() const override;
    CompileStatus getCompileStatus() const { return mCompileStatus; }
    void setCompileStatus(CompileStatus status) { mCompileStatus = status; }

    // What CompileFailed is due to, as far as the worker told.
    ZempCreator::Failure getFailure() const { return mFailure; }
    void setFailure(ZempCreator::Failure failure) { mFailure = failure; }

    std::string getFilename() const { return mFilename; }
    std::map<const unsigned, ZempPart*> getZempParts() const { return mZempParts; }
    const std::shared_ptr<const seal::Voucher>& getVoucher() const { return mVoucher; }

  private:
    CompileStatus mCompileStatus = CompilePending;
    ZempCreator::Failure mFailure = ZempCreator::Failure::None;
    const std::string mFilename;
    const std::map<const unsigned, ZempPart*> mZempParts;
    const std::shared_ptr<const seal::Voucher> mVoucher;
};

#endif
