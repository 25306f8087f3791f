/// Arguments as the bytes of a recording, put together by the compiler for each function and service of its own.
#ifndef KYBRIDGE_RECORD_ENCODE_H
#define KYBRIDGE_RECORD_ENCODE_H

#include <algorithm>
#include <bit>
#include <cstring>
#include <tuple>
#include <utility>

#include "record/format.h"
#include "record/interface.h"

namespace record {

inline std::uint8_t *put_varint(std::uint8_t *at, std::uint64_t number)
{
    while (number >= 0x80) {
        *at++ = static_cast<std::uint8_t>(number | 0x80U);
        number >>= 7U;
    }
    *at++ = static_cast<std::uint8_t>(number);
    return at;
}

inline constexpr std::size_t word_size = sizeof(std::uint64_t);

/// A word of sparse bytes that is not 0: without a branch, as nobody can foretell which of its bytes are zero.
inline std::uint8_t *put_word(std::uint8_t *to, std::uint64_t word)
{
    const auto zeroes_before = static_cast<unsigned>(std::countr_zero(word)) / 8;
    const auto zeroes_behind = static_cast<unsigned>(std::countl_zero(word)) / 8;
    const unsigned count = 8 - zeroes_before - zeroes_behind;
    *to++ = static_cast<std::uint8_t>(zeroes_before << 4U | count);
    word >>= zeroes_before * 8;
    std::memcpy(to, &word, word_size); // the machine is little-endian
    return to + count;
}

/// Bytes of a record without those at its end that are zero, but for a few: the SDK's records end in thousands.
std::size_t size_without_end(const void *data, std::size_t size);

/// Writes the bytes that are not zero: for each word of eight that has any, how many words further it is, which of its
/// bytes they are, and these bytes; a 0 ends them.
inline std::uint8_t *put_sparse(std::uint8_t *to, const void *data, std::size_t size)
{
    const auto *at = static_cast<const std::uint8_t *>(data);
    const auto *const end = at + size;
    unsigned further = 1;
    const auto put = [&](std::uint64_t word) {
        if (word == 0) {
            ++further;
            return;
        }
        to = put_word(put_varint(to, further), word);
        further = 1;
    };
    for (; static_cast<std::size_t>(end - at) >= word_size; at += word_size) {
        std::uint64_t word = 0; // the machine is little-endian
        std::memcpy(&word, at, word_size);
        put(word);
    }
    std::uint64_t rest = 0;
    for (unsigned shift = 0; at != end; ++at, shift += 8)
        rest |= std::uint64_t{*at} << shift;
    put(rest);
    *to++ = 0;
    return to;
}

/// Bytes that one argument can take in a recording, when it is sent or when it is answered.
template <typename T> constexpr std::size_t size_max(bool when_sent)
{
    constexpr Argument argument = Describe<T>::argument;
    if (!(when_sent ? argument.is_sent : argument.is_answered))
        return format::varint_max;
    switch (argument.passing) {
    case Passing::record:
        return format::varint_max + format::sparse_max(argument.size);
    case Passing::list:
        return format::varint_max + format::sparse_max(format::list_bytes_max);
    case Passing::entries:
        return format::varint_max + format::sparse_max(std::size_t{argument.size} * entries_max);
    case Passing::group:
        return format::varint_max + format::sparse_max(argument.size + sizeof(std::uint16_t) * group_vlans_max);
    default:
        return format::varint_max;
    }
}

/// A copy of what was sent, to see whether what is answered differs.
template <bool is_needed> class Copy {
public:
    void keep(const void *data, std::size_t size)
    {
        size_ = size;
        if (size <= sizeof bytes_)
            std::memcpy(bytes_, data, size);
    }
    /// A long record is taken as changed: it is written twice then.
    bool is(const void *data, std::size_t size) const
    {
        return size == size_ && size <= sizeof bytes_ && std::memcmp(bytes_, data, size) == 0;
    }

private:
    std::size_t size_;
    std::uint8_t bytes_[512];
};
template <> class Copy<false> {
};

/// Whether an argument is a record that may come back changed.
template <typename T>
inline constexpr bool has_record =
    Describe<T>::argument.is_sent &&Describe<T>::argument.is_answered &&Describe<T>::argument.passing != Passing::place;

/// One call's arguments, before it and after.
template <typename... Arguments> class Encoder {
public:
    explicit Encoder(Arguments... arguments) : arguments_(arguments...) {}

    static constexpr std::size_t sent_max = (std::size_t{0} + ... + size_max<Arguments>(true));
    static constexpr std::size_t answered_max = (std::size_t{0} + ... + size_max<Arguments>(false));

    std::uint8_t *put_sent(std::uint8_t *at)
    {
        return put_all(at, [&]<std::size_t I>(std::uint8_t *to) { return put_one_sent<I>(to); });
    }

    /// @param succeeded whether what is only answered is worth anything
    std::uint8_t *put_answered(std::uint8_t *at, bool succeeded)
    {
        return put_all(at, [&]<std::size_t I>(std::uint8_t *to) { return put_one_answered<I>(to, succeeded); });
    }

private:
    template <std::size_t I> using At = std::tuple_element_t<I, std::tuple<Arguments...>>;
    template <std::size_t I> static constexpr Argument description = Describe<At<I>>::argument;
    template <std::size_t I> auto passed() const { return plain(std::get<I>(arguments_)); }

    template <typename Put> static std::uint8_t *put_all(std::uint8_t *at, Put put)
    {
        return [&]<std::size_t... I>(std::index_sequence<I...>)
        {
            ((at = put.template operator()<I>(at)), ...);
            return at;
        }
        (std::index_sequence_for<Arguments...>());
    }

    template <std::size_t I> std::uint8_t *put_one_sent(std::uint8_t *at)
    {
        if constexpr (!description<I>.is_pointer()) {
            return put_varint(at, to_word(passed<I>()));
        } else {
            if (passed<I>() == nullptr) {
                *at++ = 0;
                return at;
            }
            if constexpr (description<I>.passing == Passing::list)
                capacity_ = passed<I + 1>() != nullptr ? *passed<I + 1>() : 0;
            if constexpr (description<I>.is_sent && description<I>.passing == Passing::place)
                return put_varint(at, to_word(*passed<I>()) + 1);
            else {
                *at++ = 1;
                if constexpr (!description<I>.is_sent)
                    return at;
                const std::size_t size = size_without_end(passed<I>(), size_of<I>());
                if constexpr (has_record<At<I>>)
                    sent_.keep(passed<I>(), size);
                return put_sparse(at, passed<I>(), size);
            }
        }
    }

    template <std::size_t I> std::uint8_t *put_one_answered(std::uint8_t *at, bool succeeded)
    {
        if constexpr (description<I>.is_answered) {
            if (passed<I>() == nullptr || !(description<I>.is_sent || succeeded))
                return at;
            if constexpr (description<I>.passing == Passing::place) {
                return put_varint(at, to_word(*passed<I>()));
            } else if constexpr (description<I>.passing == Passing::list) {
                const std::size_t size = size_of<I>();
                return put_sparse(put_varint(at, size / description<I>.size), passed<I>(), size);
            } else {
                const std::size_t size = size_without_end(passed<I>(), size_of<I>());
                const bool is_as_sent = sent_.is(passed<I>(), size);
                *at++ = is_as_sent ? 0 : 1;
                return is_as_sent ? at : put_sparse(at, passed<I>(), size);
            }
        } else {
            return at;
        }
    }

    /// Bytes of the record or the array behind a pointer.
    template <std::size_t I> std::size_t size_of() const
    {
        constexpr std::size_t one = description<I>.size;
        if constexpr (description<I>.passing == Passing::list) {
            const std::uint32_t written = passed<I + 1>() != nullptr ? *passed<I + 1>() : 0;
            return one * std::min({written, capacity_, static_cast<std::uint32_t>(format::list_bytes_max / one)});
        } else if constexpr (description<I>.passing == Passing::entries) {
            return one * (passed<I - 1>() <= entries_max ? passed<I - 1>() : 0);
        } else if constexpr (description<I>.passing == Passing::group) {
            const std::uint32_t count = passed<I>()->vlan_count;
            return one + sizeof(std::uint16_t) * (count <= group_vlans_max ? count : 0);
        } else {
            return one;
        }
    }

    std::tuple<Arguments...> arguments_;
    std::uint32_t capacity_ = 0; ///< elements of the list that is answered, if there is one
    Copy<(false || ... || has_record<Arguments>)> sent_;
};

} // namespace record

#endif
