#include "ai/usage_recording.h"

namespace quillora::ai {

CallMeter::CallMeter(std::string backend, std::string model,
                     std::shared_ptr<cost::UsageMeter> shared)
    : m_backend(std::move(backend)), m_model(std::move(model)), m_shared(std::move(shared)) {}

void CallMeter::report(const cost::UsageReport& report) {
  m_call.record(report);
  if (m_shared) m_shared->record(report);
}

RecordedCall CallMeter::finish(const UsageRecording& recording, bool failed) {
  double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
  RecordedCall call;
  call.failed = failed;
  auto usage = m_call.usage(m_backend, m_model, seconds);
  if (usage) {
    call.usage = *usage;
  } else {
    call.usage.backend = m_backend;
    call.usage.model = m_model;
    call.usage.duration = seconds;
  }
  if (m_shared) m_shared->nextResponse();
  if (recording.ledger) {
    call.entry = recording.ledger->record(call.usage, recording.kind, recording.recordID, failed,
                                          recording.prices ? *recording.prices
                                                           : cost::PriceTable::configured());
  }
  return call;
}

} // namespace quillora::ai
