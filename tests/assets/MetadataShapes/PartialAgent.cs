// An agent's class that lacks all of its trace functions but initTrace.
namespace com.tarn.harrowlite.fieldmark.dotnet {
    public static class PreAgentShim {
        public static int initTrace(int methodId) => 0;
    }
}
