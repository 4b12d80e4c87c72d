#include <clipworks/media/dispatch/DispatchQueue.h>

#include <deque>
#include <mutex>
#include <utility>

#include <clipworks/media/dispatch/GlobalWorkPool.h>
#include <clipworks/media/dispatch/WorkItem.h>

namespace clipworks {

/// Where a handle's work goes.
class DispatchQueue::Target {
 public:
  explicit Target(std::string label) : label_(std::move(label)) {}
  virtual ~Target() = default;
  Target(const Target&) = delete;
  Target& operator=(const Target&) = delete;

  virtual void async(Work work) = 0;
  [[nodiscard]] const std::string& label() const { return label_; }

 private:
  std::string label_;
};

class DispatchQueue::MainTarget final : public Target {
 public:
  explicit MainTarget(DispatchMainQueue& main) : Target("main"), main_(main) {}
  void async(Work work) override { main_.async(std::move(work)); }

 private:
  DispatchMainQueue& main_;
};

class DispatchQueue::GlobalTarget final : public Target {
 public:
  GlobalTarget() : Target("global") {}
  void async(Work work) override { GlobalWorkPool::shared().add(std::move(work)); }
};

/// Occupies one thread of the pool as long as it has items.
class DispatchQueue::SerialTarget final : public Target, public std::enable_shared_from_this<SerialTarget> {
 public:
  using Target::Target;

  void async(Work work) override {
    {
      const std::lock_guard lock(mutex_);
      items_.push_back(std::move(work));
      if (std::exchange(isScheduled_, true)) return;
    }
    GlobalWorkPool::shared().add([self = shared_from_this()] { self->runItems(); });
  }

 private:
  void runItems() {
    std::unique_lock lock(mutex_);
    while (!items_.empty()) {
      Work work = std::move(items_.front());
      items_.pop_front();
      lock.unlock();
      runWorkItem(std::move(work));
      lock.lock();
    }
    isScheduled_ = false;
  }

  std::mutex mutex_;
  std::deque<Work> items_;    // guarded by mutex_
  bool isScheduled_ = false;  // guarded by mutex_
};

DispatchQueue::DispatchQueue(std::shared_ptr<Target> target) : target_(std::move(target)) {}

DispatchQueue::DispatchQueue(DispatchMainQueue& main) : target_(std::make_shared<MainTarget>(main)) {}

DispatchMainQueue& DispatchQueue::main() {
  static DispatchMainQueue& queue = *new DispatchMainQueue;
  return queue;
}

DispatchQueue DispatchQueue::global([[maybe_unused]] DispatchQoS qos) {
  // Never destroyed: work may be added until the very end of the process.
  static const auto& target = *new std::shared_ptr<Target>(std::make_shared<GlobalTarget>());
  return DispatchQueue(target);
}

DispatchQueue DispatchQueue::make(std::string label) {
  return DispatchQueue(std::make_shared<SerialTarget>(std::move(label)));
}

void DispatchQueue::async(Work work) const {
  requireWork(work);
  target_->async(std::move(work));
}

const std::string& DispatchQueue::label() const { return target_->label(); }

}  // namespace clipworks
