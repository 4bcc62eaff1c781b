#include "lidar_web/file_maker.h"

#include <pthread.h>

namespace kerul::lidar::web {

FileMaker::~FileMaker() {
  {
    const std::lock_guard lock(mutex_);
    stop_ = true;
  }
  changed_.notify_one();
  thread_.join();
}

bool FileMaker::Add(const std::shared_ptr<FileJob>& job) {
  {
    const std::lock_guard lock(mutex_);
    std::erase_if(alive_, [](const std::weak_ptr<FileJob>& other) { return other.expired(); });
    if (alive_.size() >= most_jobs_) return false;
    alive_.push_back(job);
    waiting_.push_back(job);
  }
  changed_.notify_one();
  return true;
}

void FileMaker::Run() {
  pthread_setname_np(pthread_self(), name_.c_str());
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [&] { return stop_ || !waiting_.empty(); });
    if (stop_) return;
    const std::shared_ptr<FileJob> job = std::move(waiting_.front());
    waiting_.pop_front();
    lock.unlock();
    // Nobody waits for it any more when this is the only one who holds it.
    const auto wanted = [&] { return job.use_count() > 1 && !stop_; };
    if (wanted()) make_(*job, wanted);
    job->done = true;
    on_done_();
    lock.lock();
  }
}

void MakeFile(FileJob& job, const ViewGeometry& geometry) {
  if (!MakeFrameFile(job.header, job.Message(), geometry, job.format, job.floats, job.file,
                     job.error)) {
    job.error = "cannot make the file: " + job.error;
  }
}

}  // namespace kerul::lidar::web
