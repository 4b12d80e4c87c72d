#include <python/PythonHost.h>

namespace clipworks::python {

namespace py = pybind11;

bool PythonHost::isRequested() {
  if (raised_ != nullptr) return true;
  const py::gil_scoped_acquire locked;
  try {
    callBack();
    // Runs the handlers of the signals that came, if this is the main thread.
    if (PyErr_CheckSignals() != 0) throw py::error_already_set();
  } catch (py::error_already_set&) {
    raised_ = std::current_exception();
  }
  return raised_ != nullptr;
}

void PythonHost::callBack() {
  const double value = progress_;
  if (value <= toldProgress_ || onProgress_.is_none()) return;
  toldProgress_ = value;
  onProgress_(value);
}

}  // namespace clipworks::python
