// What a program does with the library, of which every step has failures it may give and promises that hold even so.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "support/temp_dir.h"

namespace brisolt::faults {

class Scene {
public:
    /// lasting: the host refuses everything from some point on, also what would put right what has begun.
    explicit Scene(bool hostIsDown) : lasting(hostIsDown) {}
    bool lasting;
    /// The same once more, on a host that refuses nothing.
    void again() {
        lasting = false;
        refused_.clear();
    }
    /// Whether a step has succeeded. A result that is neither above 0 nor one of the failures that the header names
    /// for such a cause is wrong; so is one without a text where that promises one.
    bool step(const char* what, int64_t result, std::initializer_list<int32_t> failures, bool told = false);
    /// Something that comes as long as the device is there, or else the host is down.
    bool comes(const char* what, bool came, bool isThere);
    /// A promise; what stands in its way when it does not hold.
    bool holds(bool promise, const std::string& text);
    const std::string& wrong() const { return wrong_; }
    const std::string& refused() const { return refused_; } ///< the last step that failed as it may
    std::string file(const char* name) const { return folder_.file(name); }
    const test::TempDir& folder() const { return folder_; }

private:
    test::TempDir folder_;
    std::string wrong_, refused_;
};

/// True: everything was done. False: a step has failed as it may, and refused() is its failure.
struct Scenario {
    const char* name;
    bool (*run)(Scene& scene);
    uint32_t haste = 50; ///< the library's clock; less where somebody has to answer within seconds of it
};
extern const std::vector<Scenario> scenarios;

} // namespace brisolt::faults
