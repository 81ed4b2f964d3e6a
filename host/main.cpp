#include "host/OstrandService.h"
#include "host/ProviderName.h"
#include "host/ServiceProviderRegistry.h"
#include "platform/kestrel/Memory.h"
#include "platform/kestrel/Signal.h"
#include "platform/kestrel/StandardFiles.h"
#include "platform/kestrel/ToolProcess.h"

#include <boost/program_options.hpp>
#include <cstdio>
#include <exception>
#include <iostream>
#include <string>
#include <system_error>

namespace po = boost::program_options;
using Host = OstrandService::OstrandService;

namespace {

constexpr int success = 0;
constexpr int failure = -1;

/// What has to be done before the first thread, file or tool. False, reported, where the system has
/// no thread left.
bool prepareProcess() {
    Kestrel::openStandardFiles();
    Kestrel::returnLargeBlocks();
    try {
        Kestrel::Signal::the.takeOver();
    } catch (const std::system_error& error) {
        std::cerr << "cannot start a thread: " << error.what() << std::endl;
        return false;
    }
    Kestrel::ToolProcess::raiseFileLimit();
    return true;
}

void printBanner() {
    std::cout << "\n"
                 "   ___    ____  _____  ____      _     _   _  ____\n"
                 "  / _ \\  / ___||_   _||  _ \\    / \\   | \\ | ||  _ \\\n"
                 " | | | | \\___ \\  | |  | |_) |  / _ \\  |  \\| || | | |\n"
                 " | |_| |  ___) | | |  |  _ <  / ___ \\ | |\\  || |_| |\n"
                 "  \\___/  |____/  |_|  |_| \\_\\/_/   \\_\\|_| \\_||____/\n"
                 " --------------------------------------------------\n"
              << "\n       -= Ostrand Service "
              << "1.0"
              << " =-" << std::endl
              << std::endl;
}

void reportMalformed(int argc, char** argv, const po::options_description& desc) {
    std::cerr << "Malformed options, sorry:" << std::endl;
    // The value of the pointer itself, once an argument. It lists nothing, and start scripts that
    // count the lines rely on it.
    for (int i = 0; i < argc; ++i)
        std::cout << "* " << static_cast<const void*>(argv) << std::endl;
    std::cout << "Try : " << std::endl << desc << std::endl;
}

/// False, reported, where the command line does not fit. An unknown option is an error only if
/// `strict`.
bool parseOptions(int argc, char** argv, const po::options_description& desc, bool strict,
                  po::variables_map& vm) {
    try {
        po::command_line_parser parser(argc, argv);
        parser.options(desc);
        if (!strict)
            parser.allow_unregistered();
        po::store(parser.run(), vm);
        po::notify(vm);
        return true;
    } catch (...) {
        reportMalformed(argc, argv, desc);
        return false;
    }
}

int serve(Host& host) {
    try {
        host.start();
    } catch (const std::exception& error) {
        // What has been started is stopped in order: no worker and no half-open server stays.
        host.stop();
        std::cerr << error.what() << std::endl;
        return failure;
    }
    host.wait();
    host.stop();
    return success;
}

} // namespace

int main(int argc, char** argv) {
    if (!prepareProcess())
        return failure;
    printBanner();
    std::fprintf(stderr, "Providers\n");
    OstrandService::ServiceProviderRegistry::the().list();

    // Target of the option in both phases, so it lives until the end of the second.
    std::string name = OstrandService::providerNameOf(argc > 0 && argv[0] ? argv[0] : "");
    po::options_description select("SelectService");
    select.add_options()("provider", po::value<std::string>(&name),
                         "service provider.")("list-providers", "list service providers.");
    po::variables_map vm;
    if (!parseOptions(argc, argv, select, false, vm))
        return failure;
    if (vm.count("list-providers") != 0)
        return success;

    Host& host = Host::the();
    std::fprintf(stderr, "instantiating provider %s\n", name.c_str());
    if (!host.createProvider(name)) {
        std::cerr << "could not instantiate provider : " << name << std::endl;
        return failure;
    }
    host.setupLogging();

    po::options_description desc("Options");
    desc.add(select);
    host.addOptions(desc);
    vm.clear();
    if (!parseOptions(argc, argv, desc, true, vm))
        return failure;
    if (vm.count("help") != 0) {
        std::cout << desc << std::endl;
        return success;
    }
    if (!host.init(vm))
        return failure;
    host.addPages();
    return serve(host);
}
