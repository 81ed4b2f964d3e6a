#pragma once

#include <cstdint>
#include <picojson.h>
#include <string>
#include <vector>

namespace OstrandService {

/// One renderer that can be lent out: an application bound to a display and a port, as the
/// configuration tells of it. A plain record.
struct RendererSlot {
    std::string className = "opengl"; ///< "class": the kind of renderer that jobs ask for by name
    std::int32_t gpus = 1;            ///< "gpus": number of GPUs
    std::int32_t cpus = 1;            ///< "cpus": number of CPUs
    std::int32_t port = 42000;        ///< "port": port of the renderer, told to clients
    /// "outputs": what the slot can deliver to. The configuration adds to this list: every slot has
    /// the frame buffer.
    std::vector<std::string> outputs = {"framebuffer"};
    std::string display = ":0.0";     ///< an element of "displays"
    std::string app = "appDapple";    ///< "exe": command line of the application
    std::string portOpt = "--port";   ///< "portOpt": switch for the port
    std::string classOpt = "--class"; ///< "classOpt": switch for the class
    std::string gpuOpt = "--gpus";    ///< "gpuOpt": switch for the GPU count
    std::string cpuOpt = "--cpus";    ///< "cpuOpt": switch for the CPU count
    std::string outOpt = "--output";  ///< "outOpt": switch for the output
    std::string addOpt = "--foobar";  ///< "addOpt": a last, extra argument

    /// Takes over what an entry of the configuration tells. Values of other types are passed over,
    /// numbers are cut towards zero, and those beyond 32 bits become the nearest that fits; from
    /// what is no object nothing is read. Returns whether the slot has an output. Throws nothing of
    /// its own.
    bool readFrom(const picojson::value& entry);

    /// True if the slot can deliver to this kind of output.
    bool delivers(const std::string& output) const;

    /// Writes the slot to standard error, one field a line.
    void dump(int index) const;
};

/// The slots of a whole configuration: one for each display of each renderer entry, the ports of an
/// entry running up from its own. An entry without displays gives none.
std::vector<RendererSlot> readRendererSlots(const picojson::value& config);

} // namespace OstrandService
