// A callable that outlives the call it is handed to: std::function without its memory, and without the C++ library's
// part that throws for an empty one.
#pragma once

#include <memory>

template <class Signature>
class FunctionRef;

template <class Result, class... Arguments>
class FunctionRef<Result(Arguments...)> {
  public:
    template <class Callable>
    FunctionRef(const Callable& callable)  // converts, like std::function
        : callable_(std::addressof(callable)), call_([](const void* stored, Arguments... arguments) -> Result {
              return (*static_cast<const Callable*>(stored))(arguments...);
          }) {}

    Result operator()(Arguments... arguments) const { return call_(callable_, arguments...); }

  private:
    const void* callable_;
    Result (*call_)(const void* stored, Arguments...);
};
