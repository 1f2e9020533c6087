#include "live/address_range.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include "failure.h"

using namespace vrc;

namespace
{

ip_address address_of(const std::string &text)
{
    ip_address address;
    address.is_v6 = text.find(':') != std::string::npos;
    EXPECT_EQ(inet_pton(address.is_v6 ? AF_INET6 : AF_INET, text.c_str(), address.bytes.data()), 1) << text;
    return address;
}

} // namespace

TEST(AddressRange, HoldsAddressesWithItsPrefix)
{
    struct {
        const char *range;
        const char *address;
        bool is_held;
    } const rows[] = {
        {"192.0.2.0/24", "192.0.2.255", true},
        {"192.0.2.0/24", "192.0.3.0", false},
        {"192.0.2.128/25", "192.0.2.127", false},
        {"192.0.2.128/25", "192.0.2.128", true},
        {"192.0.2.7", "192.0.2.7", true},
        {"192.0.2.7", "192.0.2.6", false},
        {"0.0.0.0/0", "255.255.255.255", true},
        {"0.0.0.0/0", "::1", false},
        {"::/0", "127.0.0.1", false},
        {"2001:db8::/33", "2001:db8:7fff::1", true},
        {"2001:db8::/33", "2001:db8:8000::1", false},
        {"::1", "::1", true},
        {"::1/128", "::2", false},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(address_is_held({address_range_parse(row.range)}, address_of(row.address)), row.is_held)
            << row.range << " " << row.address;
    }
}

TEST(AddressRange, HoldsWhatAnyOfThemHoldsAndAllWithoutOne)
{
    EXPECT_TRUE(address_is_held({}, address_of("203.0.113.1")));
    const std::vector<address_range> ranges = {address_range_parse("192.0.2.0/24"), address_range_parse("::1")};
    EXPECT_TRUE(address_is_held(ranges, address_of("192.0.2.1")));
    EXPECT_TRUE(address_is_held(ranges, address_of("::1")));
    EXPECT_FALSE(address_is_held(ranges, address_of("203.0.113.1")));
}

TEST(AddressRange, IsRefusedWhenItIsNone)
{
    for (const char *text : {"", "/", "/8", "192.0.2.0/", "192.0.2.0/33", "192.0.2.0/-1", "192.0.2/24", "::/129",
                             "192.0.2.0/24/8", "192.0.2.0/ 8", "localhost", "192.0.2.1/24", "2001:db8::1/64"}) {
        EXPECT_THROW(address_range_parse(text), failure) << text;
    }
}
