#pragma once

#include "providers/legacy/LegacyJobStore.h"
#include "providers/legacy/LegacyState.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <optional>
#include <string>

namespace OstrandService {

/// A store on a cache folder of its own.
class LegacyJobStoreTest : public ::testing::Test {
protected:
    LegacyJobStoreTest() : store(*state.store) { state.cachePath = folder.path(); }

    static JobRecord described(const std::string& resource) {
        JobRecord record("");
        EXPECT_TRUE(record.parseJobText("{\"resource\":\"" + resource + "\"}"));
        return record;
    }

    std::uint32_t submit(const std::string& resource, const std::string& text = "{}") {
        return store.submitJob(described(resource), text);
    }

    /// Brings a job to a state as a worker does.
    void finish(std::uint32_t id, LegacyJobState result) {
        const JobRecord taken = store.getJobRecord(id);
        store.setJobState(taken, LegacyJobStates::inProcess);
        store.setJobState(taken, result);
    }

    static std::uint32_t idOf(const std::optional<LegacyJobStore::Taken>& taken) {
        return taken ? taken->id : 0;
    }

    const Support::TemporaryFolder folder;
    LegacyState state;
    LegacyJobStore& store;
};

} // namespace OstrandService
