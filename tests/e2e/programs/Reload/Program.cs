// A program that keeps calling two methods while the test changes which of
// them are traced. The test steers it with files in the working directory:
// "reload" asks the profiler for a hot reload of the directives, "plugin"
// loads a plugin and unloads it, "spin" and "spin-late" let Work.Spin<int>
// and Work.Spin<long> loop, "call" calls Spin<long> anew, "stop" ends the
// loop. What the profiler's exports answer goes to "native.txt", never to the
// output, which is the same with and without the profiler.
using System.Runtime.CompilerServices;
using System.Runtime.InteropServices;

namespace Reload
{
    public static class Work
    {
        [MethodImpl(MethodImplOptions.NoInlining)]
        public static int Alpha(string tag) => tag.Length;

        [MethodImpl(MethodImplOptions.NoInlining)]
        public static int Beta(string tag) => tag.Length * 2;

        [MethodImpl(MethodImplOptions.NoInlining)]
        public static int Gamma(int value) => value + 1;

        // Entered before an attach or a reload and still running after it:
        // each waits for its file, then loops long enough for the runtime to
        // move the running call to new code of the method's own body. That
        // code is made once per instantiation for a value type: Spin<long> is
        // also called anew in between.
        [MethodImpl(MethodImplOptions.NoInlining)]
        public static long Spin<T>(string flag) where T : struct
        {
            while (flag != null && !File.Exists(flag))
                Thread.Sleep(20);
            long sum = 0;
            for (int i = 0; i < 5_000_000; i++)
                sum += i % 7;
            return sum;
        }
    }

    public static unsafe class Program
    {
        internal static delegate* unmanaged<byte, void> reloadDirectives;
        private static delegate* unmanaged<int, int> getReJITStatus;
        private static delegate* unmanaged<char*, char*, int, int> request;

        public static int Main(string[] args)
        {
            if (args.Length > 0 && args[0] == "bench")
                return ReloadBench.Run(Bind() >= 0, reloadDirectives);
            bool once = args.Length > 0 && args[0] == "once";
            int pending = once ? -1 : Bind();
            if (!once)
            {
                new Thread(() => Note("spun " + Work.Spin<int>("spin"))) { IsBackground = true }.Start();
                new Thread(() => Note("spun late " + Work.Spin<long>("spin-late"))) { IsBackground = true }.Start();
            }
            long total = 0;
            var deadline = DateTime.UtcNow.AddSeconds(150);
            for (int i = 0; once ? i < 10 : !File.Exists("stop") && DateTime.UtcNow < deadline; i++)
            {
                total += Work.Alpha("alpha-" + i) + Work.Beta("beta-" + i) + Work.Gamma(i);
                // Written once the methods have run: an attach comes after their compile.
                if (i == 0)
                    File.WriteAllText("pid", Environment.ProcessId.ToString());
                if (File.Exists("reload"))
                {
                    File.Delete("reload");
                    reloadDirectives(1);
                    Note("reloaded " + i);
                }
                if (File.Exists("plugin"))
                {
                    File.Delete("plugin");
                    Note("plugin " + Plugin.LoadAndUnload());
                }
                if (File.Exists("call"))
                {
                    File.Delete("call");
                    Note("called " + Work.Spin<long>(null));
                }
                if (File.Exists("environment"))
                {
                    File.Delete("environment");
                    Note("environment:\n" + AttachedEnvironment());
                }
                if (pending > 0 && getReJITStatus(pending) != -1)
                {
                    Note("status " + getReJITStatus(pending));
                    pending = 0;
                }
                Thread.Sleep(2);
            }
            Console.WriteLine("done: " + (total > 0));
            return 0;
        }

        // The profiler's exports, when the profiler is there; the identifier of
        // a ReJIT request for Gamma, whose answer the loop waits for.
        private static int Bind()
        {
            string path = Environment.GetEnvironmentVariable("CORECLR_PROFILER_PATH");
            if (path == null || !NativeLibrary.TryLoad(path, out IntPtr library))
                return -1;
            var supports = (delegate* unmanaged<byte>)NativeLibrary.GetExport(library, "Native_SupportsReJIT");
            request = (delegate* unmanaged<char*, char*, int, int>)NativeLibrary.GetExport(library, "Native_RequestReJIT");
            reloadDirectives = (delegate* unmanaged<byte, void>)NativeLibrary.GetExport(library, "Native_ReloadDirectives");
            getReJITStatus = (delegate* unmanaged<int, int>)NativeLibrary.GetExport(library, "Native_GetReJITStatus");
            Note("supports " + supports());
            int unknown;
            int gamma;
            fixed (char* module = "nowhere.dll", assembly = "nowhere")
                unknown = request(module, assembly, 0x06000001);
            fixed (char* module = "Reload.dll", assembly = "Reload")
                gamma = request(module, assembly, typeof(Work).GetMethod("Gamma").MetadataToken);
            Note("unknown " + unknown);
            Note("requested " + gamma);
            return gamma;
        }

        // The answer to a ReJIT request for the first method of the module of
        // that name, or -2 without the profiler's exports.
        internal static int RequestByName(string name)
        {
            if (request == null)
                return -2;
            fixed (char* module = name, assembly = name)
                return request(module, assembly, 0x06000001);
        }

        // What the profiler hands the agent, from the library wherever it was
        // mapped (an attach sets no variable that names it).
        private static string AttachedEnvironment()
        {
            string path = File.ReadLines("/proc/self/maps").Select(line => line.Substring(line.IndexOf('/') < 0 ? 0 : line.IndexOf('/')))
                .FirstOrDefault(mapped => mapped.EndsWith("tarn.NativeProfiler.so"));
            if (path == null || !NativeLibrary.TryLoad(path, out IntPtr library))
                return "(no profiler)";
            var read = (delegate* unmanaged<char*, int, void>)NativeLibrary.GetExport(library, "Native_GetAgentAttachEnvironmentVars");
            char* buffer = stackalloc char[4096];
            read(buffer, 4096);
            return new string(buffer);
        }

        private static void Note(string line) => File.AppendAllText("native.txt", line + "\n");
    }
}
