// Lock guard over a pthread mutex.
#ifndef VEX_CONCURRENCY_H
#define VEX_CONCURRENCY_H

#include "vex/Export.h"
#include <pthread.h>

namespace vex {
namespace concurrency {

// Holds the mutex from construction to the end of the scope, also when the thread is cancelled in between.
class VEX_PUBLIC scoped_lock {
  public:
    explicit scoped_lock(pthread_mutex_t& mutex) : mMutex(mutex) { pthread_mutex_lock(&mMutex); }
    ~scoped_lock() { pthread_mutex_unlock(&mMutex); }
    scoped_lock(const scoped_lock&) = delete;
    scoped_lock& operator=(const scoped_lock&) = delete;

  private:
    pthread_mutex_t& mMutex;
};

} // namespace concurrency
} // namespace vex

#endif
