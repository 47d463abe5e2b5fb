// Threads busy in known chains of methods, sampled by the profiler through the
// test agent. What the sessions gave goes to "samples.txt"; the output is the
// same with and without the profiler. Every wait has a time limit.
using System.Reflection;
using System.Reflection.Emit;
using System.Runtime.CompilerServices;
using TestPrograms;

namespace Sampled
{
    public static class Chain
    {
        public static volatile bool stop;
        private static long sink;

        [MethodImpl(MethodImplOptions.NoInlining)]
        public static void A() { while (!stop) B(); }

        [MethodImpl(MethodImplOptions.NoInlining)]
        public static void B() { for (int i = 0; i < 100; i++) C(); }

        [MethodImpl(MethodImplOptions.NoInlining)]
        public static void C()
        {
            long x = sink;
            for (int i = 0; i < 1000; i++) x = x * 31 + i;
            sink = x;
        }

        [MethodImpl(MethodImplOptions.NoInlining)]
        public static void Sleep(int milliseconds) => Thread.Sleep(milliseconds);

        // depth frames of Deep, then busy in C until stopped or, if work is
        // above 0, for that many calls.
        [MethodImpl(MethodImplOptions.NoInlining)]
        public static void Deep(int depth, int work = 0)
        {
            if (depth > 1) Deep(depth - 1, work);
            else for (int i = 0; work > 0 ? i < work : !stop; i++) C();
        }
    }

    // Selected by the directives: its first call brings the agent in.
    public static class Traced
    {
        [MethodImpl(MethodImplOptions.NoInlining)]
        public static int Hello() => 1;

        // Samples its own thread from the inside for five snapshots.
        [MethodImpl(MethodImplOptions.NoInlining)]
        public static string Watch(Func<string, object[], object> agent)
        {
            int token = typeof(Traced).GetMethod("Watch").MetadataToken;
            int index = (int)agent("StartForMethod", new object[] { "Sampled", token, 5 });
            var deadline = DateTime.UtcNow.AddSeconds(20);
            while ((int)agent("SampleCount", new object[] { index }) < 0 && DateTime.UtcNow < deadline)
                Chain.C();
            return Program.Describe(agent, index);
        }
    }

    public static class Program
    {
        private static readonly List<string> notes = new List<string>();

        public static int Main(string[] args)
        {
            Traced.Hello();
            Func<string, object[], object> agent = FindAgent();
            string mode = args.Length > 0 ? args[0] : "chain";
            if (agent != null)
            {
                Note("tokens A " + Token("A") + " B " + Token("B") + " C " + Token("C") + " Deep " + Token("Deep") + " Sleep " + Token("Sleep") +
                     " Watch " + typeof(Traced).GetMethod("Watch").MetadataToken.ToString("x"));
                if (mode == "chain") Sessions(agent);
                else if (mode == "table") Table(agent);
                else if (mode == "registry")
                    notes.AddRange((string[])agent("Registry", new object[] { "Sampled.Chain", typeof(Chain).GetMethod("C").MetadataToken,
                        typeof(Chain).GetMethod("B").MetadataToken, new Action(Chain.B) }));
                else if (mode == "exit") Exit(agent, int.Parse(args[1]));
                else if (mode == "plugins") Plugins(agent, int.Parse(args[1]));
                else if (mode == "bench") Bench(agent, args[1] == "sampled", int.Parse(args[2]));
            }
            else
            {
                Note("no agent");
            }
            File.WriteAllLines("samples.txt", notes);
            Console.WriteLine("sampled " + mode);
            return 0;
        }

        // A thread in A -> B -> C sampled for a while, a method session from
        // inside a traced method, and a thread that ends while sampled.
        private static void Sessions(Func<string, object[], object> agent)
        {
            agent("PushInterval", new object[] { 5 });
            Thread busy = Busy(Chain.A, out int busyId);
            int chain = (int)agent("StartForThread", new object[] { busyId, 0 });
            Thread.Sleep(600);
            Note("stop " + agent("Stop", new object[] { chain }));
            Note("chain " + Describe(agent, chain));
            Note("close " + agent("Close", new object[] { chain }) + " " + agent("SampleCount", new object[] { chain }));

            Note("watch " + Traced.Watch(agent));

            // Blocked in the runtime's native code, under B.
            var sleeper = Busy(() => Chain.Sleep(400), out int sleeperId);
            int asleep = (int)agent("StartForThread", new object[] { sleeperId, 0 });
            Thread.Sleep(200);
            agent("Stop", new object[] { asleep });
            Note("asleep " + Describe(agent, asleep));
            sleeper.Join();

            var ending = Busy(() => { var until = DateTime.UtcNow.AddMilliseconds(300); while (DateTime.UtcNow < until) Chain.B(); }, out int endingId);
            int ended = (int)agent("StartForThread", new object[] { endingId, 0 });
            ending.Join();
            WaitUntilStopped(agent, ended);
            Note("ended " + Describe(agent, ended));
            Note("unknown thread " + agent("StartForThread", new object[] { 1, 0 }));
            Thread.Sleep(200);
            Note("unknown thread again " + agent("StartForThread", new object[] { 1, 0 }));
            agent("PopInterval", new object[0]);
            Chain.stop = true;
            busy.Join();
        }

        // 64 sessions fill the table; a closed entry is reused once it is full.
        private static void Table(Func<string, object[], object> agent)
        {
            Thread busy = Busy(Chain.A, out int busyId);
            var indexes = new List<int>();
            for (int i = 0; i < 64; i++)
                indexes.Add((int)agent("StartForThread", new object[] { busyId, 3 }));
            Note("started " + string.Join(",", indexes.Distinct().Count()) + " last " + indexes[63]);
            Note("65th " + agent("StartForThread", new object[] { busyId, 3 }));
            Note("close 10 " + agent("Close", new object[] { 10 }));
            Note("reused " + agent("StartForThread", new object[] { busyId, 3 }));
            var deadline = DateTime.UtcNow.AddSeconds(20);
            while (indexes.Any(i => (int)agent("SampleCount", new object[] { i }) < 0) && DateTime.UtcNow < deadline)
                Thread.Sleep(10);
            Note("limited " + string.Join(",", indexes.Select(i => agent("SampleCount", new object[] { i })).Distinct()));
            Chain.stop = true;
            busy.Join();
        }

        // Plugins, one after the other, each with names of its own: a thread
        // sampled while in the plugin's method, its session read while the
        // plugin is there and again once it has been unloaded. The runtime
        // reuses an unloaded plugin's ids for the next ones.
        private static void Plugins(Func<string, object[], object> agent, int count)
        {
            agent("PushInterval", new object[] { 5 });
            for (int round = 0; round < count; round++)
            {
                string name = "SampledPlugin" + round;
                byte[] image = PluginImage.Build(name, module =>
                {
                    // Run(work) is work() + 1: the add after the call keeps the call from
                    // becoming a jump that would leave no frame of Run.
                    TypeBuilder host = module.DefineType(name + ".Host", TypeAttributes.Public);
                    ILGenerator il = host.DefineMethod("Run", MethodAttributes.Public | MethodAttributes.Static, typeof(int),
                                                       new[] { typeof(Func<int>) }).GetILGenerator();
                    il.Emit(OpCodes.Ldarg_0);
                    il.Emit(OpCodes.Callvirt, typeof(Func<int>).GetMethod("Invoke"));
                    il.Emit(OpCodes.Ldc_I4_1);
                    il.Emit(OpCodes.Add);
                    il.Emit(OpCodes.Ret);
                    host.CreateType();
                });
                int session = -1;
                bool unloaded = PluginImage.LoadUseUnload(image, plugin =>
                {
                    MethodInfo run = plugin.GetType(name + ".Host").GetMethod("Run");
                    Func<int> work = () => { var until = DateTime.UtcNow.AddMilliseconds(100); while (DateTime.UtcNow < until) Chain.B(); return 0; };
                    var thread = Busy(() => run.Invoke(null, new object[] { work }), out int id);
                    session = (int)agent("StartForThread", new object[] { id, 0 });
                    thread.Join();
                    WaitUntilStopped(agent, session);
                    Note("plugin token " + run.MetadataToken.ToString("x"));
                    Note("loaded " + round + " " + Describe(agent, session));
                });
                Note("unloaded " + round + " " + (unloaded ? Describe(agent, session) : "kept"));
                agent("Close", new object[] { session });
            }
            agent("PopInterval", new object[0]);
        }

        // Threads deep in Deep sampled every millisecond when Main returns.
        private static void Exit(Func<string, object[], object> agent, int threads)
        {
            agent("PushInterval", new object[] { 1 });
            for (int i = 0; i < threads; i++)
            {
                Busy(() => Chain.Deep(64), out int id).IsBackground = true;
                agent("StartForThread", new object[] { id, 0 });
            }
            Thread.Sleep(300);
        }

        // Ten threads 64 frames deep do a fixed amount of work, sampled every
        // 10 ms or not at all; bench/sampling.sh reads the cost from outside.
        private static void Bench(Func<string, object[], object> agent, bool sampled, int work)
        {
            agent("PushInterval", new object[] { 10 });
            var threads = new List<Thread>();
            var sessions = new List<int>();
            for (int i = 0; i < 10; i++)
            {
                threads.Add(Busy(() => Chain.Deep(64, work), out int id));
                if (sampled)
                    sessions.Add((int)agent("StartForThread", new object[] { id, 0 }));
            }
            threads.ForEach(t => t.Join());
            foreach (int index in sessions)
                Note("bench " + Describe(agent, index).Split('\n')[0]);
        }

        // Until the session has stopped by itself (its thread ended), for 20 s at most.
        private static void WaitUntilStopped(Func<string, object[], object> agent, int index)
        {
            var deadline = DateTime.UtcNow.AddSeconds(20);
            while ((int)agent("SampleCount", new object[] { index }) < 0 && DateTime.UtcNow < deadline)
                Thread.Sleep(10);
        }

        public static string Describe(Func<string, object[], object> agent, int index)
        {
            var lines = (string[])agent("Read", new object[] { index });
            return index + " samples " + agent("SampleCount", new object[] { index }) + " failed " +
                   agent("FailedCount", new object[] { index }) + "\n" + (lines == null ? "(unreadable)" : string.Join("\n", lines));
        }

        private static Thread Busy(ThreadStart work, out int nativeId)
        {
            int id = 0;
            var ready = new ManualResetEventSlim();
            var thread = new Thread(() => { id = KernelThreadId(); ready.Set(); work(); });
            thread.Start();
            ready.Wait(TimeSpan.FromSeconds(20));
            nativeId = id;
            return thread;
        }

        private static int KernelThreadId()
        {
            string target = Directory.ResolveLinkTarget("/proc/thread-self", false).ToString();
            return int.Parse(target.Substring(target.LastIndexOf('/') + 1));
        }

        private static string Token(string method) => typeof(Chain).GetMethod(method).MetadataToken.ToString("x");

        // The agent's sampling class, once the shim has loaded the agent.
        private static Func<string, object[], object> FindAgent()
        {
            Assembly assembly = AppDomain.CurrentDomain.GetAssemblies().FirstOrDefault(a => a.GetName().Name == "tarn.Agent");
            Type type = assembly?.GetType("com.tarn.harrowlite.agent.profiling.TraceProfiler");
            if (type == null)
                return null;
            return (name, arguments) => type.GetMethod(name).Invoke(null, arguments);
        }

        private static void Note(string line) => notes.Add(line);
    }
}
