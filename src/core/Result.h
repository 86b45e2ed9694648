#pragma once

#include <string>
#include <utility>
#include <variant>

namespace pv {

// A failure a user can act on: the file it concerns, kept apart from the reason so that each
// front end can name the file its own way.
struct Error {
    std::string file{};    // as it was named to the program; empty when no file is involved
    std::string reason{};  // translated, in plain words
    bool writing = false;

    // "FILE: reason" ("cannot write FILE: reason" when writing), or the reason alone.
    std::string message() const;
};

// Success or an Error; the engine returns these instead of throwing.
template <class T>
class Result {
  public:
    Result(T value) : state_(std::move(value)) {}
    Result(Error error) : state_(std::move(error)) {}

    bool ok() const { return std::holds_alternative<T>(state_); }
    explicit operator bool() const { return ok(); }

    T& value() & { return std::get<T>(state_); }
    const T& value() const& { return std::get<T>(state_); }
    T&& value() && { return std::get<T>(std::move(state_)); }
    T* operator->() { return &value(); }
    const T* operator->() const { return &value(); }
    T& operator*() & { return value(); }
    const T& operator*() const& { return value(); }

    const Error& error() const { return std::get<Error>(state_); }

  private:
    std::variant<T, Error> state_;
};

// Result of an operation that produces nothing but may fail.
class Status {
  public:
    Status() = default;
    Status(Error error) : failed_(true), error_(std::move(error)) {}
    static Status success() { return Status(); }

    bool ok() const { return !failed_; }
    explicit operator bool() const { return ok(); }
    const Error& error() const { return error_; }

  private:
    bool failed_ = false;
    Error error_;
};

}  // namespace pv
