// Functions of a library that few runs need, loaded when the first of them is called.
//
// Every library that a program is linked with costs each of its runs, and those that pull in others
// cost most of the time that a short command takes. A header of ours names the functions in a
// namespace of ours, by the names that they have; whoever calls them there notices nothing.
#ifndef PLATFORM_LATE_LIBRARY_H
#define PLATFORM_LATE_LIBRARY_H

#include <dlfcn.h>

#include <stdexcept>
#include <string>

namespace korvmailserver {

class LateLibrary {
 public:
  constexpr explicit LateLibrary(const char* file) : file_(file) {}

  // False and `error` when the library cannot be loaded. To be asked where a failure can be told.
  bool Load(std::string& error) const {
    if (handle_ == nullptr) {
      handle_ = dlopen(file_, RTLD_NOW);
    }
    if (handle_ == nullptr) {
      error = dlerror();
    }
    return handle_ != nullptr;
  }

  // The function of this name in the program itself, or in a library that it is linked with, else
  // in this one. Throws where there is none.
  void* Find(const char* function) const {
    std::string error;
    void* found = dlsym(RTLD_DEFAULT, function);
    if (found == nullptr && Load(error)) {
      found = dlsym(handle_, function);
    }
    return found != nullptr ? found
                            : throw std::runtime_error(std::string(function) + ": " +
                                                       (error.empty() ? file_ : error));
  }

 private:
  const char* const file_;
  mutable void* handle_ = nullptr;  // for the life of the process
};

template <class Function>
class LateFunction;

template <class Result, class... Arguments>
class LateFunction<Result(Arguments...)> {
 public:
  using Pointer = Result (*)(Arguments...);

  constexpr LateFunction(const LateLibrary& library, const char* name)
      : library_(library), name_(name) {}

  operator Pointer() const {
    if (function_ == nullptr) {
      function_ = reinterpret_cast<Pointer>(library_.Find(name_));
    }
    return function_;
  }

 private:
  const LateLibrary& library_;
  const char* const name_;
  mutable Pointer function_ = nullptr;
};

// Within a namespace: the function of the library, under its own name. Some headers rename their
// functions by macros, so the name is expanded before it becomes a text.
#define MDOMAIN_TEXT_OF(name) #name
#define MDOMAIN_LATE_FUNCTION_AS(library, name, text) \
  inline const ::korvmailserver::LateFunction<decltype(::name)> name(library, text)
#define MDOMAIN_LATE_FUNCTION(library, name) \
  MDOMAIN_LATE_FUNCTION_AS(library, name, MDOMAIN_TEXT_OF(name))

}  // namespace korvmailserver

#endif  // PLATFORM_LATE_LIBRARY_H
