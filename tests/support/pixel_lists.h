// An operation's pixel list (the (format, channel) pairs it supports, as its kernel header names them) as
// test cases: the pairs as values to loop over, or the pixel structures as a typed test's types.
#pragma once

#include <vexa/imp/detail/dispatch.h>

#include <gtest/gtest.h>

#include <utility>
#include <vector>

using Pairs = std::vector<std::pair<VEXA::Format, VEXA::Channel>>;

template <class List>
struct PixelCases;
template <class... P>
struct PixelCases<VEXA::PixelList<P...>> {
    using Types = ::testing::Types<P...>;
    static Pairs pairs() { return {{VEXA::PixelTraits<P>::format, VEXA::PixelTraits<P>::channel}...}; }
};

template <class List>
Pairs pairsOf(List)
{
    return PixelCases<List>::pairs();
}
