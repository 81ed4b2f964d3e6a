#pragma once

#include <boost/any.hpp>
#include <boost/program_options/errors.hpp>
#include <boost/program_options/value_semantic.hpp>
#include <cstdint>
#include <string>
#include <vector>

namespace OstrandService {

/// The most threads of one kind that an option may ask for.
constexpr std::int64_t maxThreads = 4096;

/// Number type of options that take no sign: the library's own conversion reads "-1" as the largest
/// number there is.
template <typename T>
struct PlainNumber {
    T value;
};

/// Converts the text of an option; found by the option library through its last arguments.
template <typename T>
void validate(boost::any& out, const std::vector<std::string>& texts, PlainNumber<T>* /*type*/,
              int /*overload*/) {
    namespace po = boost::program_options;
    po::validators::check_first_occurrence(out);
    const std::string& text = po::validators::get_single_string(texts);
    if (!text.empty() && text.front() == '-')
        throw po::invalid_option_value(text);
    boost::any number;
    po::validate(number, texts, static_cast<T*>(nullptr), 0L);
    out = PlainNumber<T>{boost::any_cast<T>(number)};
}

/// Refuses, for use as a notifier, more threads than `maxThreads`.
inline void refuseManyThreads(std::int64_t threads) {
    namespace po = boost::program_options;
    if (threads > maxThreads)
        throw po::invalid_option_value(std::to_string(threads));
}

/// A value for an option that stores an unsigned number in `target`, which outlives the options.
template <typename T>
boost::program_options::typed_value<PlainNumber<T>>* plainNumber(T& target) {
    return boost::program_options::value<PlainNumber<T>>()->notifier(
        [&target](const PlainNumber<T>& number) { target = number.value; });
}

/// The same for a number of threads, which is bounded by `maxThreads`.
inline boost::program_options::typed_value<PlainNumber<std::uint32_t>>*
plainThreadNumber(std::uint32_t& target) {
    return boost::program_options::value<PlainNumber<std::uint32_t>>()->notifier(
        [&target](const PlainNumber<std::uint32_t>& number) {
            refuseManyThreads(number.value);
            target = number.value;
        });
}

} // namespace OstrandService
