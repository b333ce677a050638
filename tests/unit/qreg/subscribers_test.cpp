#include "qreg/subscribers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/unit/qreg/value_node.h"

namespace {

using qreg::Subscribers;
using testing::ElementsAre;

class SubscribersTest : public testing::Test {
protected:
    std::shared_ptr<qreg::Subscription> Make(std::vector<std::string> patterns) {
        qreg::Filter filter;
        filter.patterns = std::move(patterns);
        return std::make_shared<qreg::Subscription>("id", filter, m_access, qreg::Subscription::Instant());
    }

    const qreg::Access m_access{test::Container("root")};
    const std::shared_ptr<qreg::Subscription> m_even = Make({"*0", "*2", "*4", "*6", "*8"});
    const std::shared_ptr<qreg::Subscription> m_all = Make({});
    const Subscribers m_subscribers{{m_even, m_all}};
    Subscribers::Audience m_buffer;
};

TEST_F(SubscribersTest, AudienceIsThoseWhoWantThePath) {
    EXPECT_THAT(m_subscribers.FindAudience("12", m_buffer), ElementsAre(m_even.get(), m_all.get()));
    EXPECT_THAT(m_subscribers.FindAudience("13", m_buffer), ElementsAre(m_all.get()));
    EXPECT_THAT(Subscribers({m_even}).FindAudience("13", m_buffer), ElementsAre());
}

TEST_F(SubscribersTest, EqualAudiencesAreOne) {
    EXPECT_EQ(&m_subscribers.FindAudience("12", m_buffer), &m_subscribers.FindAudience("14", m_buffer));
    EXPECT_NE(&m_subscribers.FindAudience("12", m_buffer), &m_subscribers.FindAudience("13", m_buffer));
}

TEST_F(SubscribersTest, MorePathsThanAreRemembered_HaveTheirAudienceToo) {
    for (int round = 0; round < 2; ++round) {
        std::size_t remembered = 0;
        for (std::size_t path = 0; path < Subscribers::c_mostPaths + 10; ++path) {
            const auto& audience = m_subscribers.FindAudience(std::to_string(path), m_buffer);
            ASSERT_EQ(audience.size(), path % 2 == 0 ? 2U : 1U) << path;
            remembered += &audience == &m_buffer ? 0 : 1;
        }
        EXPECT_EQ(remembered, Subscribers::c_mostPaths);
    }
}

}  // namespace
