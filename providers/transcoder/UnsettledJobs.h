#pragma once

#include <boost/shared_ptr.hpp>
#include <mutex>
#include <vector>

namespace OstrandService {

class ServiceTranscoderJob;

/// Jobs whose run has ended and whose folder does not tell so yet, since the disk did not take it:
/// full, read-only, or no descriptor was left. Any thread may call any operation.
class UnsettledJobs {
public:
    void add(const boost::shared_ptr<ServiceTranscoderJob>& job);

    /// Tries all of them once, and ends early where the disk still takes nothing.
    void settle();

    /// Forgets them all and holds no memory; no folder of theirs is touched behind this.
    void clear();

private:
    std::mutex mutex; ///< held over the writes: behind clear() the folders may be other jobs'
    std::vector<boost::shared_ptr<ServiceTranscoderJob>> jobs;
};

} // namespace OstrandService
