// An assembly whose name begins like the agent's: its native calls name a
// library that does not exist, and only the profiler's patching of the known
// classes makes them reach the profiler's own exports.
using System.Runtime.InteropServices;

namespace com.tarn.compat
{
    public static class AsyncUtils
    {
        [DllImport("no-such-native-library")]
        public static extern uint Native_GetCurrentNativeThreadId();
    }
}

namespace com.tarn.unlisted
{
    // Not among the patched classes: keeps its library name.
    public static class Other
    {
        [DllImport("no-such-native-library")]
        public static extern uint Native_GetCurrentNativeThreadId();
    }
}

namespace Extras
{
    public static class Program
    {
        public static int Main()
        {
            Report("patched", () => com.tarn.compat.AsyncUtils.Native_GetCurrentNativeThreadId());
            Report("unlisted", () => com.tarn.unlisted.Other.Native_GetCurrentNativeThreadId());
            var worker = new Thread(() => Report("worker", () => com.tarn.compat.AsyncUtils.Native_GetCurrentNativeThreadId()));
            worker.Start();
            worker.Join();
            return 0;
        }

        // The kernel's number of this thread, from /proc/thread-self -> <pid>/task/<tid>.
        private static uint KernelThreadId()
        {
            string target = Directory.ResolveLinkTarget("/proc/thread-self", false).ToString();
            return uint.Parse(target.Substring(target.LastIndexOf('/') + 1));
        }

        private static void Report(string name, Func<uint> call)
        {
            try
            {
                uint id = call();
                Console.WriteLine(name + ": " + (id == KernelThreadId() ? "this thread" : "another id " + id));
            }
            catch (Exception e)
            {
                Console.WriteLine(name + ": " + e.GetType().Name);
            }
        }
    }
}
