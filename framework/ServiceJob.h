#pragma once

#include "framework/JobFolder.h"
#include "framework/ServiceJobBase.h"

#include <string>
#include <utility>

namespace OstrandService {

/// A job with a description. `Desc` brings the variables for the tools as `environment`.
template <typename Desc>
class ServiceJob : public ServiceJobBase {
public:
    /// Copies the description's variables.
    void getEnvironment(EnvironmentList& env) override { env = desc.environment; }

    /// Makes the folder `basePath`/<id> and writes ".meta" into it. Where the folder can't be made
    /// nothing is written.
    void prepare(const std::string& basePath) override {
        const std::string path = basePath + "/" + std::to_string(id.load());
        setWorkDir(path);
        JobFolder::create(path, metaText);
    }

    Desc desc;
    std::string sourceText; ///< text that the concrete job was constructed with
    std::string metaText;   ///< content of ".meta": the description as the client sent it

protected:
    template <typename... Args>
    explicit ServiceJob(std::string source, Args&&... args)
        : desc(std::forward<Args>(args)...), sourceText(std::move(source)) {}
    ~ServiceJob() = default;
};

} // namespace OstrandService
