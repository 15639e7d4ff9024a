// The agent stand-in in this process, on a free loopback port unless endpoint says otherwise; a case fails without it.
#ifndef TEST_AGENT_H
#define TEST_AGENT_H

#include <gtest/gtest.h>

#include <functional>
#include <memory>

#include "NodewardSim.h"

namespace testsupport {

using SimSetup = std::function<void(nodeward::SimOptions&)>;

inline std::unique_ptr<nodeward::Sim> StartedAgent(const SimSetup& setup = nullptr,
                                                   const std::string& endpoint = "127.0.0.1:0") {
    nodeward::SimOptions options;
    options.endpoint = endpoint;
    if (setup) {
        setup(options);
    }
    auto agent = std::make_unique<nodeward::Sim>(options);
    std::string error;
    EXPECT_TRUE(agent->start(&error)) << endpoint << ": " << error;
    return agent;
}

}  // namespace testsupport

#endif
