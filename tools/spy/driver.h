#pragma once
// Which threads are in the driver's library at the moment: what they do of their own accord is the driver's
// doing.

namespace spy {

// While one lives, the calling thread is in the driver.
class InDriver {
  public:
    InDriver();
    ~InDriver();
    InDriver(const InDriver&) = delete;
    InDriver& operator=(const InDriver&) = delete;

    // Whether it came from the program, and not from the driver itself.
    bool outermost() const { return mOutermost; }

  private:
    const bool mOutermost;
};

bool inDriver();

// While one lives, the calling thread is in the platform that the driver asked for something: threads that
// begin there are not the driver's.
class OutOfDriver {
  public:
    OutOfDriver();
    ~OutOfDriver();
    OutOfDriver(const OutOfDriver&) = delete;
    OutOfDriver& operator=(const OutOfDriver&) = delete;

  private:
    const int mDepth;
};

}  // namespace spy
