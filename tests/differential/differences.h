// Collects in what the module and a model do not agree.
#pragma once

#include <cstdint>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace differential
{

class Differences
{
  public:
    // What the next expectations are about: a name, and a number unless it is negative.
    void within(std::string_view where, int64_t number = -1)
    {
        where_ = where;
        number_ = number;
    }

    template <typename Real, typename Model> void expect(std::string_view what, const Real &real, const Model &model)
    {
        if (!is_same(real, model)) {
            text_ += std::string(where_) + (number_ < 0 ? "" : " " + std::to_string(number_)) + ": ";
            text_ += std::string(what) + " is " + shown(real) + ", the model has " + shown(model) + "\n";
        }
    }

    // All since the last time.
    std::string take()
    {
        within("");
        return std::exchange(text_, {});
    }

  private:
    template <typename Real, typename Model> static bool is_same(const Real &real, const Model &model)
    {
        if constexpr (std::is_integral_v<Real> && std::is_integral_v<Model>) {
            return static_cast<int64_t>(real) == static_cast<int64_t>(model);
        } else {
            return real == model;
        }
    }

    template <typename Value> static std::string shown(const Value &value)
    {
        if constexpr (std::is_integral_v<Value>) {
            return std::to_string(value);
        } else {
            return shown_list(value);
        }
    }

    static std::string shown_list(const std::optional<size_t> &value)
    {
        return value ? std::to_string(*value) : "none";
    }

    template <typename Value> static std::string shown_list(const std::vector<Value> &values)
    {
        std::ostringstream out;

        for (const Value &value : values) {
            out << +value << ' ';
        }
        return "[" + out.str() + "]";
    }

    std::string_view where_;
    int64_t number_ = -1;
    std::string text_;
};

} // namespace differential
