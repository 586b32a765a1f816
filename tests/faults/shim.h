/// What the fault tests and the library that they preload into the program agree on.
///
/// The library holds the program in front of main() and starts a copy of it for each order that comes in on the
/// descriptor, so that thousands of runs cost one start of the program.
#ifndef FAULTS_SHIM_H
#define FAULTS_SHIM_H

constexpr int ORDER_FD = 198;

enum fault_kind : int {
    NO_FAULT,
    EVERY_ALLOCATION, ///< one run that branches off, at each of its allocations, a copy whose allocation fails
    READ_AT_MOST,     ///< a read gives n bytes at most
    READ_FAILS,       ///< every file has n bytes, behind which reading fails
    DISK_FULL,        ///< no file grows beyond n bytes
};

struct fault_order {
    fault_kind kind;
    long n;
};

/// Answers an order when the run has ended. Before that, each failing copy of EVERY_ALLOCATION has an answer, and the
/// run waits behind it for a further order, whatever that is. A copy writes `out` to `out.copy` if it opens it itself.
struct fault_answer {
    int status;      ///< as wait() gives it
    bool ended;      ///< this is the run itself, not a copy
    bool from_then;  ///< all allocations behind the n-th failed too
    long allocation; ///< the one that failed first, or how many there were
    long hits;       ///< how often the fault struck; unknown (0) for a full disk
};

#endif
