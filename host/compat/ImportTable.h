#pragma once

namespace host {

// The functions that Windows' programs import, by name, so that a test can replace one for a while. Entries
// are added before main and replaced on one thread at a time.
class ImportTable {
  public:
    ImportTable() = delete;

    static void Add(const char* name, void** entry);
    // Throws std::runtime_error when there is no function of that name.
    [[nodiscard]] static void** Find(const char* name);
};

template <typename Signature>
class Import;

// One function of the table; calling it calls what the entry holds, `own` at first.
template <typename Result, typename... Arguments>
class Import<Result(Arguments...)> {
  public:
    using Function = Result(Arguments...);

    Import(const char* name, Function* own) : entry_(reinterpret_cast<void*>(own)) {
        ImportTable::Add(name, &entry_);
    }
    Import(const Import&) = delete;
    Import& operator=(const Import&) = delete;

    Result operator()(Arguments... arguments) const {
        return reinterpret_cast<Function*>(entry_)(arguments...);
    }

  private:
    void* entry_;
};

}  // namespace host
