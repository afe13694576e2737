// Blocking first-in first-out queue between threads. Any thread may call any method.
#ifndef COMMON_WQUEUE_H
#define COMMON_WQUEUE_H

#include "common/Thread.h"
#include "vex/concurrency.h"
#include <list>
#include <pthread.h>

// A queue of pointers: it never owns, copies or deletes what they point at. Whoever removes an item owns it.
template <typename T>
class wqueue {
  public:
    wqueue() {
        pthread_mutex_init(&m_mutex, nullptr);
        pthread_cond_init(&m_condv, nullptr);
    }

    // Leaves items that are still queued alone. No thread may be waiting any more.
    ~wqueue() {
        pthread_cond_destroy(&m_condv);
        pthread_mutex_destroy(&m_mutex);
    }
    wqueue(const wqueue&) = delete;
    wqueue& operator=(const wqueue&) = delete;

    // Appends an item and wakes one waiter.
    void add(T item) {
        const vex::concurrency::scoped_lock lock(m_mutex);
        m_queue.push_back(item);
        pthread_cond_signal(&m_condv);
    }

    // Takes the front item; blocks while there is none. The wait is a cancellation point.
    T remove() {
        const vex::concurrency::scoped_lock lock(m_mutex);
        while (m_queue.empty()) {
            const CancellationPoint point;
            pthread_cond_wait(&m_condv, &m_mutex);
        }
        const T item = m_queue.front();
        m_queue.pop_front();
        return item;
    }

    int size() {
        const vex::concurrency::scoped_lock lock(m_mutex);
        return static_cast<int>(m_queue.size());
    }

  private:
    std::list<T> m_queue;
    pthread_mutex_t m_mutex;
    pthread_cond_t m_condv;
};

#endif
