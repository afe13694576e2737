// Asks the configuration monitor whether an update is needed.
#ifndef WORKITEMS_ISUPDATENEEDEDREQUEST_H
#define WORKITEMS_ISUPDATENEEDEDREQUEST_H

#include "workitems/FwWorkItem.h"

class IsUpdateNeededRequest : public FwWorkItem {
  public:
    enum QuestionStatus : int { QuestionNotAnswered = 0, QuestionAnswered = 1 };

    IsUpdateNeededRequest() : FwWorkItem(FwWorkItem::IsUpdateNeededRequest) {}

    std::string getStatus() const override;
    QuestionStatus getQuestionStatus() const { return mQuestionStatus; }

    bool isUpdateNeeded() const { return mIsUpdateNeeded; }

    // Stores the answer and marks the question as answered.
    void setIsUpdateNeeded(bool needed);

  private:
    QuestionStatus mQuestionStatus = QuestionNotAnswered;
    bool mIsUpdateNeeded = false;
};

#endif
