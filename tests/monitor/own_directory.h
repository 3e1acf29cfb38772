// A new directory of a test's own: others run at the same time.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <stdexcept>
#include <string>

inline std::string own_directory(const std::string& name) {
    std::string place = testing::TempDir() + name + ".XXXXXX";
    if (mkdtemp(place.data()) == nullptr) {
        throw std::runtime_error(place);
    }
    return place;
}
