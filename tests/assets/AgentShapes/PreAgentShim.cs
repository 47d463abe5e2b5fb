// The agent's class as the synthetic shim binds it: its trace functions by
// name and signature, in an order of their own, so that a token read for the
// wrong function shows.
namespace com.tarn.harrowlite.fieldmark.dotnet {
    public static class PreAgentShim {
        public static void catchTrace(object exception) {}
        public static void finishTrace(object result) {}
        public static void finishTrace() {}
        public static void finishValueTypeTrace(object result) {}
        public static void startTrace() {}
        public static void pushTrace(int position, object value) {}
        public static void loadTrace(object self) {}
        public static void loadTrace() {}
        public static int corInitTrace(int methodId) => 0;
        public static int initTrace(int methodId) => 0;
        public static int initTrace(long methodId) => 0;
    }
}
