#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include <app/Failure.h>
#include <app/serve/ClipFolder.h>
#include <app/serve/Gate.h>
#include <app/serve/HttpServer.h>
#include <app/serve/JobLane.h>
#include <app/serve/PageJob.h>
#include <clipworks/worker/Worker.h>

namespace clipworks::app {

/// The page, and what it asks for (docs/adr/0021-a-page-on-this-machine.md). Reads no clip itself: confined workers do.
class ClipPage final : public HttpSite {
 public:
  /// `temp` is a directory of this object's alone.
  ClipPage(ClipFolder folder, std::filesystem::path temp, int port, const WorkerOptions& worker);

  /// To be opened by the browser.
  [[nodiscard]] std::string address() const { return gate_.address(); }

  /// Ends what workers do for it. Any thread.
  void end() { stop_.request_stop(); }

  std::optional<HttpAnswer> refusal(const HttpRequest& request) override;
  HttpAnswer answer(const HttpRequest& request, const HttpBody& body) override;

 private:
  using Answer = HttpAnswer (ClipPage::*)(const HttpRequest& request);
  using Change = HttpAnswer (ClipPage::*)(const nlohmann::json& message);

  HttpAnswer clips(const HttpRequest& request);
  HttpAnswer facts(const HttpRequest& request);
  HttpAnswer times(const HttpRequest& request);
  HttpAnswer peaks(const HttpRequest& request);
  HttpAnswer picture(const HttpRequest& request);
  HttpAnswer clip(const HttpRequest& request);
  HttpAnswer made(const HttpRequest& request);
  HttpAnswer job(const HttpRequest& request);
  HttpAnswer planJob(const nlohmann::json& message);
  HttpAnswer startJob(const nlohmann::json& message);
  HttpAnswer cancelJob(const nlohmann::json& message);
  HttpAnswer takeFile(const HttpRequest& request, const HttpBody& body, bool isRecording);

  [[nodiscard]] HttpAnswer told(Worker& worker, const std::string& name, const std::vector<std::string>& words);
  [[nodiscard]] std::optional<std::filesystem::path> source(const std::string& name) const;
  [[nodiscard]] std::optional<std::filesystem::path> result(const std::string& number) const;
  [[nodiscard]] std::optional<JobLane::Job> jobNumbered(const std::string& number) const;
  [[nodiscard]] std::vector<std::string> command(const PageJob& job) const;
  [[nodiscard]] Worker& looker() { return lookers_[turn_++ % lookers_.size()]; }

  std::stop_source stop_;
  const ClipFolder folder_;
  const std::filesystem::path temp_;
  Gate gate_;
  Worker asked_;                   // for what takes milliseconds
  std::array<Worker, 2> lookers_;  // take pictures
  std::atomic<std::size_t> turn_ = 0;
  Worker listener_;  // reads the sound of whole clips
  JobLane movies_;
  JobLane previews_;
  std::atomic<int> files_ = 0;  // made in temp_
};

}  // namespace clipworks::app
