// Fault injection: which well-formed pushes fail (the first N, a seeded
// fraction, or the next N on request) and how the failure is answered.
#include <ostream>

#include "SimDocument.h"
#include "SimServer.h"

namespace nodeward {

std::optional<FailMode> Sim::Impl::decideFailure() {
    ++wellFormedSeen;
    if (failNextCount > 0) {
        --failNextCount;
        return failNextMode;
    }
    if (wellFormedSeen <= options.failFirst) {
        return options.failMode;
    }
    if (options.failRatio > 0.0) {
        // Raw engine output, not a std distribution: the same seed gives the
        // same sequence with any standard library.
        const double draw = static_cast<double>(rng()) / 4294967296.0;
        if (draw < options.failRatio) {
            return options.failMode;
        }
    }
    return std::nullopt;
}

MHD_Result Sim::Impl::answerFailure(MHD_Connection* connection, FailMode failure, bool legacy, std::size_t number) {
    if (options.printAlarms) {
        print("request " + std::to_string(number) + " answered with failure (" + FailModeName(failure) + ")");
    }
    switch (failure) {
        case FailMode::RetCode:
            return Answer(connection, MHD_HTTP_OK, FailureAnswer(legacy));
        case FailMode::Empty:
            return Answer(connection, MHD_HTTP_OK, "");
        case FailMode::Garbage:
            return Answer(connection, MHD_HTTP_OK, "%%%%");
        case FailMode::Close:
            break;
    }
    return MHD_NO;  // MHD drops the connection without a status line
}

void Sim::failNext(int n, FailMode mode) {
    std::lock_guard<std::mutex> lock(impl_->mu);
    impl_->failNextCount = n > 0 ? n : 0;
    impl_->failNextMode = mode;
}

const char* FailModeName(FailMode mode) {
    switch (mode) {
        case FailMode::RetCode:
            return "retcode";
        case FailMode::Empty:
            return "empty";
        case FailMode::Garbage:
            return "garbage";
        case FailMode::Close:
            return "close";
    }
    return "?";
}

std::ostream& operator<<(std::ostream& out, FailMode mode) { return out << FailModeName(mode); }

}  // namespace nodeward
