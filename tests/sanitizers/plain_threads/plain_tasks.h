/// What the project takes of oneTBB, on plain threads that the thread sanitizer can follow: stands
/// in for the packaged headers in that build alone.
#pragma once

#include <oneapi/tbb/blocked_range.h>

#include <atomic>
#include <cstddef>
#include <thread>
#include <vector>

namespace tbb {

struct simple_partitioner {};

namespace plain {

inline constexpr int mostThreads = 8;
inline std::atomic<int> extraThreads{0};
inline thread_local int threadIndex = 0; ///< within the arena
inline thread_local int arenaSize = 4;

/// Runs work(0) here and work(1), ... work(wanted - 1) on threads of their own, as far as there may
/// be more.
template <typename Work>
void together(int wanted, const Work& work) {
    std::vector<std::thread> threads;
    const int size = arenaSize;
    for (int index = 1; index < wanted; ++index) {
        if (extraThreads.fetch_add(1) >= mostThreads) {
            --extraThreads;
            break;
        }
        threads.emplace_back([&work, index, size] {
            threadIndex = index;
            arenaSize = size;
            work(index);
        });
    }
    work(0);
    for (std::thread& thread : threads) {
        thread.join();
        --extraThreads;
    }
}

template <typename Range>
void splitInto(std::vector<Range>& pieces, Range range) {
    if (range.is_divisible()) {
        Range upper(range, split());
        splitInto(pieces, range);
        splitInto(pieces, upper);
    } else if (!range.empty()) {
        pieces.push_back(range);
    }
}

} // namespace plain

template <typename Value, typename Body, typename Partitioner = simple_partitioner>
void parallel_for(const blocked_range<Value>& range, const Body& body, const Partitioner& = {}) {
    std::vector<blocked_range<Value>> pieces;
    plain::splitInto(pieces, range);
    std::atomic<std::size_t> next{0};
    plain::together(plain::arenaSize, [&](int) {
        for (std::size_t piece = next++; piece < pieces.size(); piece = next++) {
            body(pieces[piece]);
        }
    });
}

template <typename Index, typename Body>
void parallel_for(Index first, Index last, const Body& body) {
    parallel_for(blocked_range<Index>(first, last), [&](const blocked_range<Index>& range) {
        for (Index index = range.begin(); index != range.end(); ++index) {
            body(index);
        }
    });
}

template <typename First, typename Second>
void parallel_invoke(const First& first, const Second& second) {
    std::atomic<bool> taken{false};
    plain::together(2, [&](int index) {
        if (index == 1) {
            taken = true;
            second();
        } else {
            first();
        }
    });
    if (!taken) {
        second();
    }
}

class task_arena {
public:
    explicit task_arena(int threads) : m_threads(threads) {}
    template <typename Work>
    void execute(const Work& work) {
        const int outside = plain::arenaSize;
        plain::arenaSize = m_threads;
        work();
        plain::arenaSize = outside;
    }

private:
    int m_threads;
};

namespace this_task_arena {
inline int current_thread_index() {
    return plain::threadIndex;
}
} // namespace this_task_arena

} // namespace tbb
