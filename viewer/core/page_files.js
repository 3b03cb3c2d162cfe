// What PageDevice.cpp asks for: the files of the worker (see page/files.js).
mergeInto(LibraryManager.library, {
  PageOpen: function(path) { return Module.files.open(UTF8ToString(path)); },
  PageSize: function(handle) { return Module.files.size(handle); },
  PageRead: function(handle, offset, buffer, length) {
    return Module.files.read(handle, offset, HEAPU8.subarray(buffer, buffer + length));
  },
  PageReadsAgain: function(handle, offset) { return Module.files.readsAgain(handle, offset) ? 1 : 0; },
});
