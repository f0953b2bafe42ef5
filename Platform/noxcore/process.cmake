# What sets a process up and names it: error mode, configuration, application state, log file, signals.
target_sources(noxcore PRIVATE
  AppStateManager.cpp ClassWatcher.cpp CommonDirs.cpp ConsoleLogFile.cpp ErrorManager.cpp Localizer.cpp
  ProcessConfiguration.cpp ProcessNotification.cpp ProcessParameters.cpp SignalWatcher.cpp
  TestCommandRunnerRegistry.cpp TraceHandler.cpp VersionInfo.cpp)
