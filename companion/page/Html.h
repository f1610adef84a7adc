// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Text of HTML, and the one way to it: forms that the program has, and values that are escaped.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

namespace page {

/// For the content of an element, and for the value of an attribute in quotes. What is no UTF-8, or
/// a character that HTML cannot have, becomes U+FFFD.
std::string Escaped(std::string_view text);

/// What may stand in a page as it is. Nothing but Fill makes one that is not empty.
class Html {
  public:
    const std::string& Text() const { return text_; }
    bool IsEmpty() const { return text_.empty(); }
    Html& operator+=(const Html& more) {
        text_ += more.text_;
        return *this;
    }

  private:
    friend Html FillForm(std::string_view form, std::span<const class Value> values);
    std::string text_;
};

/// What is put into a form.
class Value {
  public:
    Value(const Html& html) : text_(html.Text()) {}
    Value(std::string_view text) : text_(Escaped(text)) {}
    Value(const std::string& text) : Value(std::string_view(text)) {}
    Value(const char* text) : Value(std::string_view(text)) {}
    Value(std::int64_t number) : text_(std::to_string(number)) {}

    const std::string& Text() const { return text_; }

  private:
    std::string text_;
};

Html FillForm(std::string_view form, std::span<const Value> values);

/// A text of the program, known when it is compiled, with a {} for each value.
template <typename... Values>
class Form {
  public:
    template <std::size_t size>
    consteval Form(const char (&text)[size]) : text_(text, size - 1) {
        std::size_t places = 0;
        for (std::size_t at = 0; at + 1 < text_.size(); ++at)
            if (text_[at] == '{' && text_[at + 1] == '}') ++places;
        if (places != sizeof...(Values)) throw "a form has as many {} as there are values";
    }
    std::string_view Text() const { return text_; }

  private:
    std::string_view text_;
};

/// The form with each value in the place of a {}, in their order.
template <typename... Values>
Html Fill(std::type_identity_t<Form<Values...>> form, const Values&... values) {
    const std::array<Value, sizeof...(Values)> all = {Value(values)...};
    return FillForm(form.Text(), all);
}

}  // namespace page
